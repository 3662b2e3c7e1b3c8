// Free pages go back to the file system step by step; whatever is in the way is reported, once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <locale>

#include "support/database_test_access.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/pages.h"
#include "support/statement_log.h"
#include "support/temp_database.h"
#include "veldra/platform/event_loop.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using Access = DatabaseTestAccess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class CompactionTest : public ::testing::Test {
 protected:
  /// A file of small pages in `mode`, open, with `pages` in all and `free` of them free.
  void open_with_free_pages(std::string_view mode, std::int64_t pages, std::int64_t free) {
    make_pages(db->db_path, mode, pages, free);
    db->connect();
    const _Space space = Access::space(*db->connection());
    ASSERT_EQ(space.pages, pages);
    ASSERT_EQ(space.free, free);
    log.take();
  }

  _Space space() { return Access::space(*db->connection()); }

  std::string skipped_line(std::string_view level, std::string_view reason) {
    return std::string(level) + " storage/database: Compaction of " + db->db_path.string() +
           " skipped: " + std::string(reason);
  }

  LogCapture log;
  TempDatabase db{TempDatabase::State::Unconnected};
};

TEST_F(CompactionTest, StartsAtTwoThousandPagesAndATenthOfTheFile) {
  struct Case {
    std::int64_t pages;
    std::int64_t free;
    bool compacts;
  };
  static constexpr Case cases[] = {
      {3000, 2047, false}, {3000, 2048, true}, {20480, 2048, true}, {20481, 2048, false}};
  for (const auto& [pages, free, compacts] : cases) {
    open_with_free_pages("INCREMENTAL", pages, free);
    {
      const StatementLog statements(*db->connection());
      const Compaction expected{
          .converted = false, .pages_released = compacts ? free : 0, .skipped = {}};
      EXPECT_EQ(db->compact(), expected) << free << " of " << pages;
      EXPECT_EQ(statements.count("PRAGMA incremental_vacuum(1024)"), compacts ? 2 : 0);
    }
    EXPECT_EQ(space().free, compacts ? 0 : free);
    EXPECT_EQ(log.take().size(), compacts ? 1U : 0U);
    db->close();
    std::filesystem::remove(db->db_path);
  }
}

TEST_F(CompactionTest, ShortensTheFileAndSaysSo) {
  open_with_free_pages("INCREMENTAL", 5000, 4000);
  EXPECT_EQ(db->compact().pages_released, 4000);
  EXPECT_LE(std::filesystem::file_size(db->db_path), 1000U * PAGE_BYTES);
  EXPECT_EQ(std::filesystem::file_size(db->db_path.string() + "-wal"), 0U);
  // 5000 pages of 512 bytes are 2.4 MiB, 1000 are 0.5.
  EXPECT_THAT(
      log.take(),
      ElementsAre(MatchesRegex("INFO storage/database: Compacted " + db->db_path.string() +
                               ": 4000 free pages released \\(2 -> 0 MiB\\) in [0-9]+\\.[0-9]s")));
  EXPECT_EQ(dump(*db, "PRAGMA busy_timeout"), "5000") << "the checkpoint's patience was kept";
  EXPECT_TRUE(db->check_integrity());
}

TEST_F(CompactionTest, TheHostsLocaleDoesNotChangeTheLine) {
  struct Grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
    char do_decimal_point() const override { return ','; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouped));
  const std::string text = _describe_shrinking(1'234'567, 3'000 * _MIB + 1, 2 * _MIB - 1, 1250ms);
  std::locale::global(before);
  EXPECT_THAT(text, MatchesRegex("1234567 free pages released \\(3000 -> 1 MiB\\) in 1\\.[23]s"));
}

TEST_F(CompactionTest, AFileInFullAutoVacuumModeEndsWell) {
  open_with_free_pages("FULL", 5000, 4000);
  const Compaction result = db->compact();
  EXPECT_FALSE(result.converted);
  EXPECT_EQ(result.skipped, std::nullopt);
  EXPECT_EQ(space().free, 4000 - result.pages_released);
  EXPECT_THAT(log.take(), ElementsAre(StartsWith("INFO storage/database: Compacted ")));
}

TEST_F(CompactionTest, EachKindOfSkipIsReportedOnceAtItsLevel) {
  const auto expect_skip = [&](const std::string& reason, auto compact) {
    for (const char* const level : {"INFO", "DEBUG", "DEBUG"}) {
      const Compaction expected{.converted = false, .pages_released = 0, .skipped = reason};
      EXPECT_EQ(compact(), expected);
      EXPECT_THAT(log.take(), ElementsAre(skipped_line(level, reason)));
    }
  };
  expect_skip("the database is closed", [&] { return db->compact(); });
  open_with_free_pages("INCREMENTAL", 5000, 4000);
  expect_skip("called on the event loop: a pool thread compacts", [&] {
    const EventLoopScope loop;
    std::promise<void> locked;
    std::promise<void> done;
    std::future<void> holder = std::async(std::launch::async, [&] {
      const std::lock_guard guard(Access::lock(*db));
      locked.set_value();
      done.get_future().wait();
    });
    locked.get_future().wait();
    const Compaction result = db->compact();  // would hang if it waited for the lock
    done.set_value();
    return result;
  });
  expect_skip("called inside a transaction", [&] {
    Compaction result;
    db->transaction([&](Cursor& cursor) {
      cursor.execute("PRAGMA user_version = 1");
      result = db->compact();
      EXPECT_EQ(Access::tx_depth(*db), 1);
    });
    return result;
  });
  // Neither closing nor connecting forgets what was reported.
  db->close();
  db->compact();
  EXPECT_THAT(log.take(), ElementsAre(skipped_line("DEBUG", "the database is closed")));
  db->connect();
  EXPECT_EQ(db->compact().pages_released, 4000) << "a skip changed something";
}

TEST_F(CompactionTest, AnErrorIsAttachedToItsReport) {
  open_with_free_pages("INCREMENTAL", 5000, 4000);
  // A statement that has not ended keeps the log from being checkpointed.
  Cursor unfinished = db->execute("SELECT * FROM filler");
  const std::string reason = "failed: database table is locked";
  for (const char* const level : {"WARNING", "DEBUG"}) {
    db->execute("PRAGMA user_version = 1");
    EXPECT_EQ(db->compact().skipped, reason);
    EXPECT_THAT(log.take(),
                ElementsAre(skipped_line(level, reason) +
                            "\nOperationalError: database table is locked\ncompacting " +
                            db->db_path.string()));
    db->execute("CREATE TABLE IF NOT EXISTS more (b)");
    db->execute("INSERT INTO more SELECT zeroblob(2000000)");
    db->execute("DELETE FROM more");
  }
  unfinished.close();
  // The file's size cannot be told: an error of the file system.
  std::filesystem::rename(db->db_path, db.directory / "moved.db");
  EXPECT_THAT(db->compact().skipped.value(),
              MatchesRegex("failed: .*index.db: No such file or directory"));
  EXPECT_THAT(log.take(), ElementsAre(MatchesRegex("DEBUG .*\nOSError: .*\ncompacting .*")));
  std::filesystem::rename(db.directory / "moved.db", db->db_path);
}

TEST_F(CompactionTest, AReaderWithAnOldSnapshotOnlyDelaysTheShrinking) {
  open_with_free_pages("INCREMENTAL", 5000, 4000);
  Connection other(db->db_path);
  Cursor reader = other.execute("SELECT * FROM filler");
  reader.fetchone();
  EXPECT_EQ(db->compact().pages_released, 4000);
  EXPECT_THAT(
      log.take(),
      ElementsAre("INFO storage/database: Compaction of " + db->db_path.string() +
                      ": a reader still uses an older snapshot, so the file shrinks at a later "
                      "checkpoint",
                  StartsWith("INFO storage/database: Compacted ")));
  EXPECT_EQ(std::filesystem::file_size(db->db_path), 5000U * PAGE_BYTES);
  reader.close();
  db->close();
  other.close();
  EXPECT_LE(std::filesystem::file_size(db->db_path), 1000U * PAGE_BYTES);
}

TEST_F(CompactionTest, AWriterWaitsForOneStepAtMost) {
  // compaction            writer
  // step 1 begins         asks for the lock
  // step 1 ends
  //                       writes
  // step 2 begins ...
  open_with_free_pages("INCREMENTAL", 10'000, 9'000);
  std::future<void> writer;
  std::atomic<int> steps = 0;
  int steps_before_the_write = 0;
  Compaction result;
  {
    const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
      if (statement == "INSERT INTO filler VALUES (zeroblob(1))") {
        steps_before_the_write = steps;
        return;
      }
      if (!statement.starts_with("PRAGMA incremental_vacuum") || ++steps != 3) return;
      writer = std::async(std::launch::async,
                          [&] { db->execute("INSERT INTO filler VALUES (zeroblob(1))"); });
      EXPECT_FALSE(finished(writer, 50ms)) << "written in the middle of a step";
    });
    result = db->compact();
    EXPECT_TRUE(finished(writer));
  }
  EXPECT_GE(result.pages_released, 8'999);
  EXPECT_GE(steps, 9);
  EXPECT_EQ(steps_before_the_write, 3) << "the writer waited for more than the running step";
}

TEST_F(CompactionTest, ClosingBetweenTwoStepsEndsIt) {
  open_with_free_pages("INCREMENTAL", 10'000, 9'000);
  std::future<void> closing;
  std::optional<StatementWatch> watch(
      std::in_place, *db->connection(), [&](std::string_view statement) {
        if (!statement.starts_with("PRAGMA incremental_vacuum") || closing.valid()) return;
        closing = std::async(std::launch::async, [&] { db->close(); });
        EXPECT_FALSE(finished(closing, 50ms)) << "closed under a running step";
      });
  const std::shared_ptr<Connection> writer = db->connection();
  const Compaction expected{.converted = false, .pages_released = 1024, .skipped = {}};
  EXPECT_EQ(db->compact(), expected);
  EXPECT_TRUE(finished(closing));
  EXPECT_TRUE(db->closed());
  EXPECT_THAT(log.take(), ElementsAre(StartsWith("INFO storage/database: Compacted ")));
}

}  // namespace
}  // namespace veldra
