// Opening and closing: what connect sets up, what a failure leaves, what close waits for.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "support/database_test_access.h"
#include "support/environment.h"
#include "support/finished.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using Access = DatabaseTestAccess;

/// "open", or the message that `connection` throws; with "closed" when `closed` says so.
std::string state(const Database& db) {
  const std::string closed = db.closed() ? "closed, " : "";
  try {
    return closed + (db.connection() ? "open" : "none");
  } catch (const RuntimeError& error) {
    return closed + error.what();
  }
}

constexpr const char* NOT_CONNECTED = "Database not connected. Call connect() first.";
constexpr const char* CLOSED = "closed, Database is closed.";

TEST(ReaderCountTest, ReadsTheEnvironmentAtEveryCall) {
  struct Case {
    const char* text;
    int expected;
  };
  static constexpr Case cases[] = {
      {nullptr, 6},
      {"", 6},
      {" \t\n", 6},
      {"4", 4},
      {"+4", 4},
      {" 4\t", 4},
      {"1_0", 10},
      {"0", 0},
      {"-0", 0},
      {"-3", 0},
      {"-99999999999999999999", 0},
      {"32", 32},
      {"33", 32},
      {"007", 7},
      {"0000000000000000000000000000000000000005", 5},
      {"abc", 6},
      {"4.5", 6},
      {"0x10", 6},
      {"4 readers", 6},
      {"4 4", 6},
      {"+", 6},
      {"--4", 6},
      {"+ 4", 6},
      {"_4", 6},
      {"4_", 6},
      {"1__0", 6},
      {"1e1", 6},
      {"1234567890123456789012345678901234567890", 32},
  };
  for (const auto& [text, expected] : cases) {
    const EnvironmentVariable variable(_READERS_ENV, text);
    EXPECT_EQ(reader_count(), expected) << (text != nullptr ? text : "unset");
  }
}

TEST(LifecycleTest, ANewFileIsMadeForTheLayerAndClosingLeavesItAlone) {
  const TempDirectory directory;
  Database db(directory / "missing/too/index.db");
  EXPECT_FALSE(std::filesystem::exists(directory / "missing")) << "the constructor touched files";
  db.connect();
  EXPECT_EQ(dump(db, "PRAGMA page_size"), "8192");
  EXPECT_EQ(dump(db, "PRAGMA auto_vacuum"), "2");
  EXPECT_EQ(dump(db, "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(dump(db, "PRAGMA foreign_keys"), "1");
  EXPECT_EQ(dump(db, "PRAGMA synchronous"), "1");
  EXPECT_EQ(dump(db, "PRAGMA busy_timeout"), "5000");
  db.execute("CREATE TABLE t AS SELECT 'src/a' AS path");
  // On the writer and on a read connection alike.
  for (const char* const sql :
       {"SELECT path_under(path, 'src') FROM t", "/**/ SELECT path_under(path, 'src') FROM t"})
    EXPECT_EQ(dump(db, sql), "1");
  db.close();
  EXPECT_FALSE(std::filesystem::exists(db.db_path.string() + "-wal"));
  EXPECT_FALSE(std::filesystem::exists(db.db_path.string() + "-shm"))
      << "a read connection was closed last";
}

TEST(LifecycleTest, AnExistingFileKeepsItsPagesAndItsAutoVacuumMode) {
  const TempDirectory directory;
  {
    Connection old(directory / "index.db");
    for (const char* const sql : {"PRAGMA page_size=1024", "CREATE TABLE t (i)"}) old.execute(sql);
  }
  Database db(directory / "index.db");
  db.connect();
  EXPECT_EQ(dump(db, "PRAGMA page_size"), "1024");
  EXPECT_EQ(dump(db, "PRAGMA auto_vacuum"), "0");
  EXPECT_EQ(dump(db, "PRAGMA journal_mode"), "wal");
}

TEST(LifecycleTest, GoesFromUnconnectedToOpenToClosedAndBack) {
  TempDatabase db(TempDatabase::State::Unconnected);
  EXPECT_EQ(state(*db), NOT_CONNECTED);
  db->close();
  EXPECT_EQ(state(*db), NOT_CONNECTED) << "closing nothing counted as closing";
  for (int round = 0; round < 2; ++round) {
    db->connect();
    EXPECT_EQ(state(*db), "open");
    const std::shared_ptr<ReaderPool> pool = Access::readers(*db);
    db->fetchall("SELECT 1");
    db->close();
    EXPECT_EQ(state(*db), CLOSED);
    EXPECT_EQ(Access::readers(*db), pool) << "close() replaced the pool";
    EXPECT_THROW((void)pool->lease(0ms), ReaderUnavailable);
    db->close();
    EXPECT_EQ(state(*db), CLOSED);
    for (const char* const sql : {"SELECT 1", "PRAGMA user_version", "VALUES (1)"}) {
      try {
        db->fetchone(sql);
        ADD_FAILURE() << sql << " ran on a closed database";
      } catch (const RuntimeError& error) {
        EXPECT_STREQ(error.what(), "Database is closed.");
      }
    }
  }
}

TEST(LifecycleTest, ThePoolFollowsTheVariableAndTheJournalMode) {
  TempDatabase db(TempDatabase::State::Unconnected);
  for (const auto& [readers, most] : {std::pair("2", 2), std::pair("0", 0), std::pair("1", 1)}) {
    const EnvironmentVariable variable(_READERS_ENV, readers);
    db->connect();
    const std::shared_ptr<ReaderPool> pool = Access::readers(*db);
    ASSERT_EQ(pool != nullptr, most > 0);
    std::vector<ReaderPool::Lease> loans;
    for (int i = 0; i < most; ++i) loans.push_back(pool->lease(0ms));
    if (pool) {
      EXPECT_THROW((void)pool->lease(0ms), ReaderUnavailable);
    }
    loans.clear();
    EXPECT_EQ(dump(*db, "SELECT 1"), "1");
    db->close();
  }
  Database memory(":memory:");
  memory.connect();
  EXPECT_EQ(Access::readers(memory), nullptr) << "a database in memory was opened twice";
  memory.execute("CREATE TABLE t AS SELECT 1");
  EXPECT_EQ(dump(memory, "SELECT * FROM t"), "1");
}

TEST(LifecycleTest, AFailedConnectLeavesTheStateOfItsStep) {
  const TempDirectory directory;
  std::ofstream(directory / "text") << "no database, but a text long enough to have a header of a"
                                       " hundred bytes, which is what SQLite looks at first of all";
  std::filesystem::create_directory(directory / "folder");
  {
    Database db(directory / "text/index.db");
    try {
      db.connect();
      ADD_FAILURE() << "a file served as a directory";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code(), std::errc::not_a_directory);
    }
    EXPECT_EQ(state(db), NOT_CONNECTED);
  }
  {
    Database db(directory / "folder");
    try {
      db.connect();
      ADD_FAILURE() << "a directory was opened";
    } catch (const OperationalError& error) {
      EXPECT_STREQ(error.what(), "unable to open database file");
    }
    EXPECT_EQ(state(db), NOT_CONNECTED);
  }
  {
    Database db(directory / "text");
    try {
      db.connect();
      ADD_FAILURE() << "a text file was opened";
    } catch (const Error& error) {
      EXPECT_STREQ(error.what(), "file is not a database");
      EXPECT_EQ(dynamic_cast<const OperationalError*>(&error), nullptr);
    }
    EXPECT_EQ(state(db), "open") << "the partly configured writer was lost";
    EXPECT_EQ(Access::readers(db), nullptr);
    db.close();
    EXPECT_EQ(state(db), CLOSED);
  }
  {  // A closed database whose file cannot be opened any more is unconnected.
    Database db(directory / "index.db");
    db.connect();
    db.close();
    std::filesystem::remove(directory / "index.db");
    std::filesystem::create_directory(directory / "index.db");
    EXPECT_THROW(db.connect(), OperationalError);
    EXPECT_EQ(state(db), NOT_CONNECTED);
  }
}

TEST(LifecycleTest, ConnectOnAnOpenDatabaseReplacesWriterAndPool) {
  TempDatabase db;
  const std::shared_ptr<Connection> old_writer = db->connection();
  const std::shared_ptr<ReaderPool> old_pool = Access::readers(*db);
  db->connect();
  EXPECT_NE(db->connection(), old_writer);
  EXPECT_NE(Access::readers(*db), old_pool);
  EXPECT_EQ(dump(*old_writer, "SELECT 1"), "1") << "closed under a caller who still uses it";
  db->execute("INSERT INTO components (name, path) VALUES ('a', 'a')");
  EXPECT_EQ(dump(*db, "SELECT name FROM components"), "a");
}

TEST(LifecycleTest, CloseWaitsForTheTransactionOfAnotherThread) {
  TempDatabase db;
  std::promise<void> inside;
  std::promise<void> go_on;
  std::future<void> closer;
  std::future<void> owner = std::async(std::launch::async, [&] {
    db->transaction([&](Cursor& cursor) {
      cursor.execute("INSERT INTO components (name, path) VALUES ('a', 'a')");
      inside.set_value();
      go_on.get_future().wait();
      cursor.execute("INSERT INTO components (name, path) VALUES ('b', 'b')");
    });
  });
  ASSERT_TRUE(finished(inside.get_future()));
  closer = std::async(std::launch::async, [&] { db->close(); });
  EXPECT_FALSE(finished(closer, 50ms)) << "closed under an open transaction";
  EXPECT_EQ(state(*db), "open");
  go_on.set_value();
  EXPECT_TRUE(finished(closer));
  EXPECT_NO_THROW(owner.get());
  db->connect();
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM components"), "2");
}

TEST(LifecycleTest, CursorsAndRowsOutliveTheDatabase) {
  std::optional<TempDatabase> db(std::in_place);
  (*db)->execute("INSERT INTO components (name, path) VALUES ('a', 'a'), ('b', 'b')");
  Cursor cursor = (*db)->execute("SELECT name FROM components");
  const Row row = *cursor.fetchone();
  db.reset();  // not closed before
  EXPECT_THROW(cursor.fetchone(), ProgrammingError);
  EXPECT_EQ(row["name"].as_text(), "a");
}

}  // namespace
}  // namespace veldra
