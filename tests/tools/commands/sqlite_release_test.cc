// Which releases of SQLite are sound.
#include <gtest/gtest.h>

#include "veldra-index/commands/sqlite_release.h"

namespace veldra::tool {
namespace {

TEST(SqliteReleaseTest, KnowsWhereTheFaultBeginsAndEnds) {
  for (const char* faulty : {"3.7.0", "3.40.1", "3.44.5", "3.44.7", "3.50.6", "3.51.2"})
    EXPECT_TRUE(has_wal_reset_fault(faulty)) << faulty;
  for (const char* sound : {"3.6.23", "3.44.6", "3.50.7", "3.51.3", "3.52", "4.0.0"})
    EXPECT_FALSE(has_wal_reset_fault(sound)) << sound;
}

}  // namespace
}  // namespace veldra::tool
