// A file made without auto-vacuum is rewritten once, when that is bounded and safe.
#include "support/database_test.h"
#include "support/environment.h"
#include "support/fake_disk.h"
#include "support/pages.h"

namespace veldra {
namespace {

class ConversionTest : public ::testing::Test {
 protected:
  ConversionTest() {
    make_pages(db->db_path, "NONE", 5000, 4000);
    db->connect();
  }

  void expect_skip(const Compaction& result, const std::string& level, const std::string& reason) {
    EXPECT_EQ(result, (Compaction{false, 0, reason}));
    EXPECT_THAT(log.take(), ElementsAre(StartsWith(level + " storage/database: Compaction of " +
                                                   db->db_path.string() + " skipped: " + reason)));
  }

  LogCapture log;
  TempDatabase db{TempDatabase::State::Unconnected};
};

TEST_F(ConversionTest, DeclinesWhereItIsNotBoundedAndSafe) {
  constexpr std::int64_t GIB_PAGES = COMPACT_CONVERT_MAX_BYTES / PAGE_BYTES;
  // One page more than fits; the pages that are free do not count.
  _Space space{.mode = 0, .pages = GIB_PAGES + 4001, .free = 4000, .page_size = PAGE_BYTES};
  expect_skip(Access::convert_to_incremental(*db, space), "INFO",
              "too large to convert in place: 1024 MiB of data, the limit is 1024 MiB; its free "
              "pages stay until the index file is rebuilt");
  const auto disk_with = [&](std::int64_t free) {
    return FakeDisk({{db.directory.path(), {1, free}}, {"/fake/tmp", {1, free}}});
  };
  {
    const FakeDisk small = disk_with(900);
    // 1000 pages of 512 bytes twice, and 64 MiB.
    const std::string shortfall =
        "not enough disk space: 0 MiB free in " + db.directory.path().string() + ", 64 MiB needed";
    expect_skip(db->compact(), "INFO", shortfall);
    db->close();
    const EnvironmentVariable none(_READERS_ENV, "0");
    db->connect();
    expect_skip(db->compact(), "INFO",
                "no read connections: a query would wait for the lock the conversion holds");
  }
  db->connect();
  const FakeDisk large = disk_with(INT64_MAX);
  --space.pages;
  EXPECT_TRUE(Access::convert_to_incremental(*db, space).converted)
      << "refused at exactly one gibibyte, or not tried again";
}

TEST_F(ConversionTest, AFailureIsNotTriedAgain) {
  {
    Connection other(db->db_path);  // another process in the middle of a write
    other.execute("BEGIN IMMEDIATE");
    db->connection()->set_busy_timeout(0ms);
    expect_skip(db->compact(), "WARNING", "failed: database is locked");
  }
  expect_skip(db->compact(), "DEBUG",
              "an earlier conversion failed or changed nothing: not retried");
}

TEST_F(ConversionTest, OfTwoThreadsAtOnceOneConvertsWhileQueriesGoOn) {
  const _Space space = Access::space(*db->connection());
  std::future<Compaction> second;
  Compaction first;
  {
    const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
      if (statement != "VACUUM") return;
      second = std::async(std::launch::async,
                          [&] { return Access::convert_to_incremental(*db, space); });
      EXPECT_FALSE(finished(second, 50ms)) << "two conversions at once";
      const auto query = std::async(std::launch::async, [&] { dump(*db, "SELECT 1"); });
      EXPECT_TRUE(finished(query)) << "a query waited for the conversion";
    });
    first = db->compact();
    ASSERT_TRUE(finished(second));
  }
  EXPECT_TRUE(first.converted);
  EXPECT_EQ(second.get(), Compaction());
  EXPECT_EQ(first.pages_released, 5000 - Access::space(*db->connection()).pages);
  EXPECT_LT(std::filesystem::file_size(db->db_path), 1100U * PAGE_BYTES);
  EXPECT_THAT(log.take(),
              ElementsAre(MatchesRegex(
                  "INFO storage/database: Converted " + db->db_path.string() +
                  " to incremental auto-vacuum: " + std::to_string(first.pages_released) +
                  " free pages released \\(2 -> 0 MiB\\) in [0-9.]+s")));
  EXPECT_EQ(db->compact(), Compaction());
  EXPECT_EQ(Access::space(*db->connection()).mode, _AUTO_VACUUM_INCREMENTAL);
}

}  // namespace
}  // namespace veldra
