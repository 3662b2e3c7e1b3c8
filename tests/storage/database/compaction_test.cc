// Free pages go back to the file system step by step; whatever is in the way is reported, once.
#include "support/database_test.h"
#include "support/pages.h"
#include "veldra/platform/event_loop.h"

namespace veldra {
namespace {

class CompactionTest : public ::testing::Test {
 protected:
  /// A new file of small pages, open, with `pages` in all and `free` of them free.
  void open_with_free_pages(std::int64_t pages, std::int64_t free) {
    db->close();
    std::filesystem::remove(db->db_path);
    make_pages(db->db_path, "INCREMENTAL", pages, free);
    db->connect();
    ASSERT_EQ(free_pages(), free);
    log.take();
  }

  std::int64_t free_pages() { return Access::space(*db->connection()).free; }

  LogCapture log;
  TempDatabase db{TempDatabase::State::Unconnected};
  const std::string subject = " storage/database: Compaction of " + db->db_path.string();
};

TEST_F(CompactionTest, StartsAtTwoThousandPagesAndATenthOfTheFile) {
  static constexpr std::tuple<std::int64_t, std::int64_t, bool> CASES[] = {
      {3000, 2047, false}, {3000, 2048, true}, {20480, 2048, true}, {20481, 2048, false}};
  for (const auto& [pages, free, compacts] : CASES) {
    open_with_free_pages(pages, free);
    EXPECT_EQ(db->compact(), (Compaction{false, compacts ? free : 0, {}})) << free << "/" << pages;
    EXPECT_EQ(free_pages(), compacts ? 0 : free);
  }
}

TEST_F(CompactionTest, AReaderWithAnOldSnapshotOnlyDelaysTheShrinking) {
  open_with_free_pages(5000, 4000);
  // 5000 pages of 512 bytes are 2.4 MiB, 1000 are 0.5.
  const std::string compacted = "INFO storage/database: Compacted " + db->db_path.string() +
                                ": 4000 free pages released \\(2 -> ";
  db->execute("PRAGMA busy_timeout=1234");
  EXPECT_EQ(db->compact().pages_released, 4000);
  EXPECT_THAT(log.take(), ElementsAre(MatchesRegex(compacted + "0 MiB\\) in [0-9]+\\.[0-9]s")));
  EXPECT_LE(std::filesystem::file_size(db->db_path), 1000U * PAGE_BYTES);
  EXPECT_EQ(std::filesystem::file_size(db->db_path.string() + "-wal"), 0U);
  EXPECT_EQ(dump(*db, "PRAGMA busy_timeout"), "1234") << "the checkpoint's patience was kept";

  open_with_free_pages(5000, 4000);
  Connection other(db->db_path);
  Cursor reader = other.execute("SELECT * FROM filler");
  reader.fetchone();
  EXPECT_EQ(db->compact().pages_released, 4000);
  EXPECT_THAT(log.take(), ElementsAre("INFO" + subject +
                                          ": a reader still uses an older snapshot, so the file "
                                          "shrinks at a later checkpoint",
                                      MatchesRegex(compacted + "2 MiB\\) in .*s")));
  EXPECT_EQ(std::filesystem::file_size(db->db_path), 5000U * PAGE_BYTES);
  reader.close();
  db->close();
  other.close();
  EXPECT_LE(std::filesystem::file_size(db->db_path), 1000U * PAGE_BYTES);
}

TEST_F(CompactionTest, EachKindOfSkipIsReportedOnceAtItsLevel) {
  const auto expect_skip = [&](const std::string& reason, auto compact) {
    const std::string line = subject + " skipped: " + reason;
    for (const char* const level : {"INFO", "DEBUG", "DEBUG"}) {
      EXPECT_EQ(compact(), (Compaction{false, 0, reason}));
      EXPECT_THAT(log.take(), ElementsAre(level + line));
    }
  };
  expect_skip("the database is closed", [&] { return db->compact(); });
  open_with_free_pages(5000, 4000);
  expect_skip("called on the event loop: a pool thread compacts", [&] {
    const std::lock_guard held(Access::lock(*db));
    return std::async(std::launch::async,
                      [&] {
                        const EventLoopScope loop;
                        return db->compact();  // would hang if it waited for the lock
                      })
        .get();
  });
  expect_skip("called inside a transaction", [&] {
    Compaction result;
    db->transaction([&](Cursor&) { result = db->compact(); });
    return result;
  });
  // The file's size cannot be told: an error of the file system.
  std::filesystem::rename(db->db_path, db.directory / "moved.db");
  const std::string missing = db->db_path.string() + ": No such file or directory";
  EXPECT_THAT(db->compact().skipped.value(), MatchesRegex("failed: .*" + missing));
  const std::string report = " skipped: failed: .*\nOSError: .*" + missing + "\ncompacting .*";
  EXPECT_THAT(log.take(), ElementsAre(MatchesRegex("WARNING" + subject + report)));
  std::filesystem::rename(db.directory / "moved.db", db->db_path);
  EXPECT_EQ(db->compact().pages_released, 4000) << "a skip changed something";
}

TEST_F(CompactionTest, AWriterWaitsForOneStepAtMostAndClosingEndsTheRest) {
  // compaction            writer                       closer
  // step 3 begins         asks for the lock
  // step 3 ends
  //                       writes
  // step 5 begins                                      asks for the lock
  // step 5 ends
  //                                                    closes
  open_with_free_pages(10'000, 9'000);
  static constexpr std::string_view INSERT = "INSERT INTO filler VALUES (zeroblob(1))";
  std::future<void> writer;
  std::future<void> closing;
  int steps = 0;
  int steps_before_the_write = 0;
  const std::shared_ptr<Connection> connection = db->connection();
  const StatementWatch watch(*connection, [&](std::string_view statement) {
    if (statement == INSERT) steps_before_the_write = steps;
    if (!statement.starts_with("PRAGMA incremental_vacuum(1024)")) return;
    if (++steps == 3) {
      writer = std::async(std::launch::async, [&] { db->execute(INSERT); });
      EXPECT_FALSE(finished(writer, 50ms)) << "written in the middle of a step";
    } else if (steps == 5) {
      closing = std::async(std::launch::async, [&] { db->close(); });
      EXPECT_FALSE(finished(closing, 50ms)) << "closed under a running step";
    }
  });
  EXPECT_EQ(db->compact(), (Compaction{false, 5 * 1024, {}})) << "less or more than five steps";
  EXPECT_TRUE(finished(writer));
  EXPECT_TRUE(finished(closing));
  EXPECT_EQ(steps_before_the_write, 3) << "the writer waited for more than the running step";
  EXPECT_THAT(log.take(), ElementsAre(StartsWith("INFO storage/database: Compacted ")));
}

}  // namespace
}  // namespace veldra
