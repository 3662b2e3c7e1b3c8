// Queries on one state, on a reader and on the writer, and what `activity` shows of them.
#include "veldra/storage/snapshot.h"

#include <algorithm>

#include "support/database_test.h"
#include "support/environment.h"
#include "support/old_file.h"

namespace veldra {
namespace {

constexpr std::string_view NAMES = "SELECT group_concat(name, '') FROM components";

std::string names(Snapshot& state) {
  const std::optional<Row> row = state.fetchone(NAMES);
  return (*row)[0].is_null() ? "" : std::string((*row)[0].as_text());
}

class SnapshotTest : public ::testing::Test {
 protected:
  SnapshotTest() { add("a"); }
  void add(std::string_view name) {
    db->execute("INSERT INTO components (name, path) VALUES (?, '')", {name});
  }

  TempDatabase db;
};

TEST_F(SnapshotTest, SeesOneStateAndItsGenerationWhateverIsWritten) {
  const TempDatabase staging;
  db->snapshot([&](Snapshot& state) {
    EXPECT_EQ(names(state), "a");
    add("b");
    db->swap_index_from(staging.db.db_path);
    std::async(std::launch::async, [&] { add("c"); }).get();
    db->snapshot([&](Snapshot& inner) {
      EXPECT_EQ(std::to_string(inner.index_generation()) + names(inner), "1c");
    });
    EXPECT_THROW(state.fetchone("no SQL"), OperationalError);
    std::string seen;
    state.fetcheach(NAMES, {}, [&](const Row& row) {
      seen += row[0].as_text();
      return seen.size() == state.fetchall("SELECT 1").size();
    });
    EXPECT_EQ(std::to_string(state.index_generation()) + seen + names(state), "0aa");
  });
  EXPECT_THROW(db->snapshot([&](Snapshot&) { throw std::runtime_error("the body's own"); }),
               std::runtime_error);
  EXPECT_EQ(db->activity().readers_lent, 0);
  EXPECT_EQ(dump(*db, NAMES), "c");
  Connection other(db->db_path);
  EXPECT_EQ(dump(other, "PRAGMA wal_checkpoint(TRUNCATE)"), "0|0|0") << "a transaction stayed open";
}

TEST_F(SnapshotTest, RefusesWhatIsNoQueryOnEitherConnection) {
  static constexpr const char* REFUSED[] = {
      "DELETE FROM files",
      "WITH x AS (SELECT 1) DELETE FROM files",
      "PRAGMA user_version=7",
      "PRAGMA journal_mode=DELETE",
      "PRAGMA wal_checkpoint",
      "/* to */ BEGIN",
      "COMMIT",
      "-- the\nEND",
      " rollback",
      "SAVEPOINT s",
      "RELEASE s",
      "ATTACH ':memory:' AS m",
      "DETACH m",
      "CREATE TABLE t (i)",
      "VACUUM",
  };
  const auto expect_refusals = [&](Snapshot& state) {
    for (const char* const sql : REFUSED) {
      const std::function<void()> ways[] = {
          [&] { state.fetchone(sql); }, [&] { state.fetchall(sql); },
          [&] { state.fetcheach(sql, {}, [](const Row&) { return true; }); }};
      for (const auto& ask : ways) {
        EXPECT_THAT(ask, ThrowsMessage<OperationalError>("attempt to write a readonly database"))
            << sql;
      }
    }
    EXPECT_FALSE(state.fetchone("-- nothing"));
    EXPECT_EQ(names(state), "a");
  };
  db->snapshot(expect_refusals);
  db->transaction([&](Cursor&) { db->snapshot(expect_refusals); });
  // What a pragma sets does not outlive the snapshot on a connection that others are lent.
  db->snapshot([](Snapshot& state) { state.fetchone("PRAGMA case_sensitive_like=1"); });
  EXPECT_EQ(dump(*db, "SELECT 'a' LIKE 'A'"), "1");
}

TEST_F(SnapshotTest, IsATransactionOnTheWriterWhereNoReaderIsLent) {
  const EnvironmentVariable no_reader("VELDRA_DB_READERS", "0");
  db->close();
  db->connect();
  db->snapshot([&](Snapshot& state) {
    db->transaction([&](Cursor&) { add("b"); });
    EXPECT_EQ(names(state), "ab") << "its own write is not seen";
    EXPECT_EQ(db->activity().writer_operation, "snapshot");
    EXPECT_THROW(db->close(), ProgrammingError);
  });
  const auto fails = [&](Snapshot&) {
    db->snapshot([&](Snapshot&) { add("c"); });
    throw std::runtime_error("");
  };
  EXPECT_THROW(db->snapshot(fails), std::runtime_error);
  EXPECT_EQ(dump(*db, NAMES), "ab") << "what joined was not rolled back";
}

TEST_F(SnapshotTest, ItsOwnThreadNeverWaitsForTheReaderThatItHolds) {
  const EnvironmentVariable one_reader("VELDRA_DB_READERS", "1");
  db->close();
  db->connect();
  const StatementLog log(*db->connection());
  db->snapshot([&](Snapshot& state) {
    db->fetchone("SELECT 'asked of the writer'");
    db->snapshot([&](Snapshot& inner) { EXPECT_EQ(names(inner), names(state)); });
  });
  EXPECT_EQ(log.count("SELECT 'asked of the writer'"), 1);
}

TEST(SnapshotOfAnOldFileTest, ARewriteOfThePagesWaitsWithoutTheLockThatABodyNeeds) {
  TempDirectory directory;
  const std::filesystem::path path = directory / "index.db";
  make_old_file(path, 2);
  Database db(path);
  db.connect();
  db.create_schema();
  std::future<void> rewrite;
  db.snapshot([&](Snapshot& state) {
    EXPECT_THROW(db.migrate_schema(), ProgrammingError) << "it would wait for itself";
    state.fetchone("SELECT 1");
    rewrite = std::async(std::launch::async, [&] { db.migrate_schema(); });
    EXPECT_FALSE(finished(rewrite, 100ms));
    auto write = std::async(std::launch::async, [&] { db.execute("DELETE FROM edges"); });
    EXPECT_TRUE(finished(write, 4s)) << "the rewrite holds the lock while it waits";
    db.execute("DELETE FROM edges");
    EXPECT_EQ(dump(db, "SELECT 1"), "1");
  });
  ASSERT_TRUE(finished(rewrite));
  rewrite.get();
  EXPECT_EQ(dump(db, "PRAGMA page_size"), "8192");
  EXPECT_EQ(db.activity().readers_lent, 0);
  dump(db, "SELECT 1");
  EXPECT_EQ(db.activity().readers_open, 1) << "queries were left to the writer";
}

TEST_F(SnapshotTest, ActivityShowsWhoHoldsTheLogAndTheLock) {
  EXPECT_GT(db->activity().log_bytes, 0);
  EXPECT_FALSE(db->activity().oldest_read);
  EXPECT_FALSE(db->activity().writer_busy);
  EXPECT_EQ(db->activity().writer_operation + db->activity().oldest_read_sql, "");
  db->snapshot([&](Snapshot& state) {
    EXPECT_EQ(db->activity().oldest_read_sql, "");
    { state.fetchone(std::string("SELECT 'ran last'")); }
    db->fetcheach("SELECT 2", {}, [&](const Row&) {
      const Activity now = db->activity();
      EXPECT_EQ(now.oldest_read_sql, "SELECT 'ran last'");
      EXPECT_GE(now.oldest_read.value(), 0ms);
      EXPECT_EQ(now.readers_lent, 2);
      EXPECT_GE(now.readers_open, 2);
      return true;
    });
  });
  std::future<void> waiter;
  db->transaction([&](Cursor&) {
    waiter = std::async(std::launch::async, [&] { db->execute("DELETE FROM files"); });
    while (db->activity().writers_waiting == 0) std::this_thread::yield();
    const Activity now = std::async(std::launch::async, [&] { return db->activity(); }).get();
    EXPECT_EQ(now.writer_operation, "transaction");
    EXPECT_GE(now.writer_busy.value(), 0ms);
  });
  ASSERT_TRUE(finished(waiter));
  EXPECT_EQ(db->activity().writers_waiting, 0);
  db->fetcheach("VALUES (1)", {}, [&](const Row&) {
    EXPECT_EQ(db->activity().writer_operation, "VALUES (1)");
    return true;
  });
  db->close();
  EXPECT_THROW(db->activity(), RuntimeError);
}

}  // namespace
}  // namespace veldra
