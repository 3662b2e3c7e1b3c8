// A file made without auto-vacuum is rewritten once, when that is bounded and safe.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <future>

#include "support/database_test_access.h"
#include "support/environment.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/pages.h"
#include "support/statement_log.h"
#include "support/temp_database.h"
#include "veldra/platform/disk.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using Access = DatabaseTestAccess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr const char* NO_READERS =
    "no read connections: a query would wait for the lock the conversion holds";
constexpr const char* NOT_RETRIED = "an earlier conversion failed or changed nothing: not retried";

Compaction skip(std::string reason) {
  return {.converted = false, .pages_released = 0, .skipped = std::move(reason)};
}

class ConversionTest : public ::testing::Test {
 protected:
  ConversionTest() { make_pages(db->db_path, "NONE", 5000, 4000); }

  std::int64_t mode() { return Access::space(*db->connection()).mode; }
  std::string skipped_line(std::string_view level, std::string_view reason) {
    return std::string(level) + " storage/database: Compaction of " + db->db_path.string() +
           " skipped: " + std::string(reason);
  }

  LogCapture log;
  TempDatabase db{TempDatabase::State::Unconnected};
};

TEST_F(ConversionTest, RewritesTheFileAndFromThenOnReleasesInSteps) {
  db->connect();
  const Compaction result = db->compact();
  EXPECT_TRUE(result.converted);
  EXPECT_EQ(result.skipped, std::nullopt);
  EXPECT_EQ(mode(), 2);
  EXPECT_EQ(result.pages_released, 5000 - Access::space(*db->connection()).pages);
  EXPECT_GT(result.pages_released, 3900);  // pointer maps need some pages
  EXPECT_LT(std::filesystem::file_size(db->db_path), 1100U * PAGE_BYTES);
  EXPECT_THAT(log.take(),
              ElementsAre(MatchesRegex(
                  "INFO storage/database: Converted " + db->db_path.string() +
                  " to incremental auto-vacuum: " + std::to_string(result.pages_released) +
                  " free pages released \\(2 -> 0 MiB\\) in [0-9.]+s")));
  EXPECT_TRUE(db->check_integrity());
  EXPECT_EQ(db->compact(), Compaction());
  db->execute("INSERT INTO filler VALUES (zeroblob(2000000))");
  db->execute("DELETE FROM filler");
  const Compaction again = db->compact();
  EXPECT_FALSE(again.converted);
  EXPECT_GT(again.pages_released, 3900);
}

TEST_F(ConversionTest, DeclinesWhereItIsNotBoundedAndSafe) {
  struct SmallDisk : Disk {
    std::int64_t free_bytes(const std::filesystem::path&) const override { return 900; }
  } const small_disk;
  {
    const EnvironmentVariable none(_READERS_ENV, "0");
    db->connect();
    // A skip comes before the disk is looked at.
    const DiskReplacement replacement(small_disk);
    for (const char* const level : {"INFO", "DEBUG"}) {
      EXPECT_EQ(db->compact(), skip(NO_READERS));
      EXPECT_THAT(log.take(), ElementsAre(skipped_line(level, NO_READERS)));
    }
    db->close();
  }
  db->connect();
  {
    const DiskReplacement replacement(small_disk);
    // 1000 pages of 512 bytes twice, or once, and 64 MiB.
    const std::string reason = db->compact().skipped.value();
    EXPECT_THAT(reason, MatchesRegex("not enough disk space: 0 MiB free in " +
                                     db.directory.path().string() + ", 64 MiB needed"));
    EXPECT_THAT(log.take(), ElementsAre(skipped_line("INFO", reason)));
  }
  EXPECT_EQ(mode(), 0);
  EXPECT_FALSE(Access::conversion_failed(*db)) << "a skip counted as a failure";
  EXPECT_TRUE(db->compact().converted);
}

TEST_F(ConversionTest, OneGibibyteOfDataIsTheMost) {
  db->connect();
  constexpr std::int64_t GIB_PAGES = COMPACT_CONVERT_MAX_BYTES / PAGE_BYTES;
  const std::string reason =
      "too large to convert in place: 1024 MiB of data, the limit is 1024 MiB; its free pages stay "
      "until the index file is rebuilt";
  // One page more than fits; the pages that are free do not count.
  _Space space{.mode = 0, .pages = GIB_PAGES + 4001, .free = 4000, .page_size = PAGE_BYTES};
  Access::readers(*db)->close();
  EXPECT_EQ(Access::convert_to_incremental(*db, space), skip(reason));
  EXPECT_THAT(log.take(), ElementsAre(skipped_line("INFO", reason)));
  space.pages = GIB_PAGES * 2;
  space.free = 0;
  EXPECT_THAT(Access::convert_to_incremental(*db, space).skipped.value(),
              ::testing::StartsWith("too large to convert in place: 2048 MiB of data,"));
  struct LargeDisk : Disk {
    std::int64_t free_bytes(const std::filesystem::path&) const override { return INT64_MAX; }
  } const large_disk;
  const DiskReplacement replacement(large_disk);
  space.pages = GIB_PAGES + 4000;
  space.free = 4000;
  const Compaction result = Access::convert_to_incremental(*db, space);
  EXPECT_TRUE(result.converted) << "refused at exactly one gibibyte";
  EXPECT_EQ(result.pages_released, space.pages - Access::space(*db->connection()).pages)
      << "not the difference to what was measured before";
}

TEST_F(ConversionTest, AFailureIsNotTriedAgain) {
  db->connect();
  std::optional<StatementLog> statements(std::in_place, *db->connection());
  {
    // Another process in the middle of a write.
    Connection other(db->db_path);
    other.execute("BEGIN IMMEDIATE");
    db->connection()->set_busy_timeout(0ms);
    EXPECT_EQ(db->compact(), skip("failed: database is locked"));
    db->connection()->set_busy_timeout(Connection::BUSY_TIMEOUT);
  }
  EXPECT_THAT(log.take(), ElementsAre(skipped_line("WARNING", "failed: database is locked") +
                                      "\nOperationalError: database is locked\ncompacting " +
                                      db->db_path.string()));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(db->compact(), skip(NOT_RETRIED));
    EXPECT_THAT(log.take(), ElementsAre(skipped_line("DEBUG", NOT_RETRIED)));
  }
  EXPECT_EQ(statements->count("VACUUM"), 1);
  statements.reset();
  EXPECT_EQ(mode(), 0);
  // The next object tries again.
  db->close();
  Database next(db->db_path);
  next.connect();
  EXPECT_TRUE(next.compact().converted);
}

TEST_F(ConversionTest, AnErrorBeforeTheLockIsTriedAgain) {
  struct BrokenDisk : Disk {
    std::int64_t free_bytes(const std::filesystem::path& directory) const override {
      throw_os_error(std::make_error_code(std::errc::io_error), "cannot ask about", directory);
    }
  } const broken_disk;
  db->connect();
  {
    const DiskReplacement replacement(broken_disk);
    EXPECT_THAT(db->compact().skipped.value(), ::testing::StartsWith("failed: cannot ask about "));
  }
  EXPECT_FALSE(Access::conversion_failed(*db));
  EXPECT_TRUE(db->compact().converted);
}

TEST_F(ConversionTest, OfTwoThreadsAtOnceOneConverts) {
  db->connect();
  std::future<Compaction> second;
  Compaction first;
  {
    // The second measures while the first is about to rewrite the file.
    const _Space space = Access::space(*db->connection());
    const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
      if (statement != "VACUUM") return;
      second = std::async(std::launch::async,
                          [&, space] { return Access::convert_to_incremental(*db, space); });
      EXPECT_FALSE(finished(second, 50ms)) << "two conversions at once";
    });
    first = db->compact();
    ASSERT_TRUE(second.valid());
    ASSERT_TRUE(finished(second));
  }
  EXPECT_TRUE(first.converted);
  EXPECT_EQ(second.get(), Compaction());
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_FALSE(Access::conversion_failed(*db));
}

TEST_F(ConversionTest, QueriesGoOnMeanwhileAndAClosedDatabaseIsLeftAlone) {
  db->connect();
  const _Space space = Access::space(*db->connection());
  int looks = 0;
  {
    const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
      if (statement != "VACUUM") return;
      std::future<std::string> query = std::async(
          std::launch::async, [&] { return dump(*db, "SELECT rowid FROM filler LIMIT 1"); });
      EXPECT_TRUE(finished(query)) << "a query waited for the conversion";
      EXPECT_EQ(query.get(), "1");
      ++looks;
    });
    EXPECT_TRUE(db->compact().converted);
  }
  EXPECT_EQ(looks, 1);
  db->close();
  log.take();
  EXPECT_EQ(Access::convert_to_incremental(*db, space), skip("the database is closed"));
  EXPECT_THAT(log.take(), ElementsAre(skipped_line("INFO", "the database is closed")));
}

}  // namespace
}  // namespace veldra
