// What a disk must have free for a VACUUM.
#include <gtest/gtest.h>

#include "support/database_test_access.h"
#include "support/environment.h"
#include "support/fake_disk.h"

namespace veldra {
namespace {

constexpr std::int64_t MARGIN = COMPACT_DISK_MARGIN_BYTES;
constexpr std::int64_t DATA = 500 * _MIB;

TEST(SpaceTest, ADiskFallsShortByTheFirstDirectoryThatDoes) {
  struct Case {
    const char* why;
    dev_t temporary_device;
    std::int64_t free_beside_database, free_for_temporary;
    const char* shortfall;  // none when the disk suffices
  };
  static constexpr Case CASES[] = {
      {"exactly twice the data is enough on one volume", 1, 2 * DATA + MARGIN, 0, nullptr},
      {"a byte less is not", 1, 2 * DATA + MARGIN - 1, 0,
       "1063 MiB free in /data, 1064 MiB needed"},
      {"two volumes need it once each", 2, DATA + MARGIN, DATA + MARGIN, nullptr},
      {"the temporary one falls short", 2, DATA + MARGIN, DATA + MARGIN - 1,
       "563 MiB free in /fake/tmp, 564 MiB needed"},
  };
  const EnvironmentVariable unset("SQLITE_TMPDIR", "");
  for (const auto& [why, device, beside, temporary, shortfall] : CASES) {
    SCOPED_TRACE(why);
    const FakeDisk disk({{"/data", {1, beside}}, {"/fake/tmp", {device, temporary}}});
    EXPECT_EQ(_disk_shortfall("/data/", DATA).value_or("none"),
              shortfall ? std::string("not enough disk space: ") + shortfall : "none");
  }
}

}  // namespace
}  // namespace veldra
