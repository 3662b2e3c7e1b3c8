// The measures of the file, and what a disk must have free for a VACUUM.
#include <gtest/gtest.h>

#include "support/database_test_access.h"
#include "support/environment.h"
#include "support/fake_disk.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

constexpr std::int64_t MARGIN = COMPACT_DISK_MARGIN_BYTES;
constexpr std::int64_t DATA = 500 * _MIB;

TEST(SpaceTest, MeasuresWhatSqliteSays) {
  TempDatabase db;
  db->execute("CREATE TABLE filler (x)");
  db->execute("INSERT INTO filler VALUES (zeroblob(8192 * 100))");
  db->execute("DELETE FROM filler");
  const _Space space = DatabaseTestAccess::space(*db->connection());
  EXPECT_EQ(space.mode, _AUTO_VACUUM_INCREMENTAL);
  EXPECT_EQ(space.page_size, 8192);
  EXPECT_GE(space.free, 100);
  EXPECT_GT(space.pages, space.free);
  EXPECT_EQ(space.used_bytes(), (space.pages - space.free) * 8192);
}

TEST(SpaceTest, ADiskFallsShortByTheFirstDirectoryThatDoes) {
  struct Case {
    const char* why;
    dev_t temporary_device;
    std::int64_t free_beside_database, free_for_temporary, used;
    const char* shortfall;  // none when the disk suffices
  };
  static constexpr Case cases[] = {
      {"exactly twice the data is enough on one volume", 1, 2 * DATA + MARGIN, 0, DATA, nullptr},
      {"a byte less is not", 1, 2 * DATA + MARGIN - 1, 0, DATA,
       "1063 MiB free in /data, 1064 MiB needed"},
      {"nothing in use still needs the margin", 1, _MIB - 1, 0, 0,
       "0 MiB free in /data, 64 MiB needed"},
      {"two volumes need it once each", 2, DATA + MARGIN, DATA + MARGIN, DATA, nullptr},
      {"the database's volume is asked first", 2, 0, 0, DATA,
       "0 MiB free in /data, 564 MiB needed"},
      {"then the temporary one", 2, DATA + MARGIN, DATA + MARGIN - 1, DATA,
       "563 MiB free in /fake/tmp, 564 MiB needed"},
  };
  const EnvironmentVariable unset("SQLITE_TMPDIR", "");
  for (const auto& [why, device, beside, temporary, used, shortfall] : cases) {
    SCOPED_TRACE(why);
    const FakeDisk disk({{"/data", {1, beside}}, {"/fake/tmp", {device, temporary}}});
    EXPECT_EQ(_disk_shortfall("/data/", used).value_or("none"),
              shortfall ? std::string("not enough disk space: ") + shortfall : "none");
  }
}

TEST(SpaceTest, TheTemporaryDirectoryIsTheOneThatSqliteIsTold) {
  const FakeDisk disk({{".", {1, 0}}, {"/data", {1, DATA}}, {"/scratch", {2, 7 * _MIB}}});
  {
    const EnvironmentVariable told("SQLITE_TMPDIR", "/scratch/");
    EXPECT_EQ(_disk_shortfall("/data", 0),
              "not enough disk space: 7 MiB free in /scratch, 64 MiB needed");
  }
  // A missing temporary directory counts as one volume, and only the database's is asked.
  const EnvironmentVariable told("SQLITE_TMPDIR", "/missing");
  EXPECT_EQ(_disk_shortfall("/data", DATA / 4), std::nullopt);
  EXPECT_EQ(_disk_shortfall(_directory_of("index.db"), 0),
            "not enough disk space: 0 MiB free in ., 64 MiB needed");
  EXPECT_THROW(_disk_shortfall("/gone", 0), OSError);
}

}  // namespace
}  // namespace veldra
