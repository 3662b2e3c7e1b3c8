// Scopes commit or roll back as a whole, nest, and always leave the connection in autocommit.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <future>
#include <thread>

#include "support/database_test_access.h"
#include "support/finished.h"
#include "support/statement_log.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using Access = DatabaseTestAccess;

/// After each test: no scope is open, the lock is free, the connection in autocommit, and what is
/// written is there to stay.
class TransactionTest : public ::testing::Test {
 protected:
  TransactionTest() { db->execute("CREATE TABLE t (i INTEGER PRIMARY KEY)"); }

  void TearDown() override {
    EXPECT_EQ(Access::tx_depth(*db), 0);
    EXPECT_EQ(Access::tx_owner(*db), std::thread::id());
    std::future<void> another = std::async(std::launch::async, [&] {
      Access::lock(*db).lock();
      Access::lock(*db).unlock();
    });
    EXPECT_TRUE(finished(another)) << "the lock was kept";
    if (db->closed()) db->connect();
    EXPECT_NE(sqlite3_get_autocommit(db->connection()->handle()), 0) << "a transaction is open";
    Connection other(db->db_path);
    other.set_busy_timeout(0ms);
    EXPECT_NO_THROW(other.execute("PRAGMA user_version = 1")) << "the write lock was kept";
    db->execute("INSERT INTO t VALUES (1024)");
    db->close();
    db->connect();
    EXPECT_EQ(dump(*db, "SELECT count(*) FROM t WHERE i = 1024"), "1") << "a later write was lost";
    EXPECT_TRUE(db->check_integrity());
  }

  /// The sum of the table, which is made of powers of two.
  std::string sum() { return dump(*db, "SELECT ifnull(sum(i), 0) FROM t"); }

  TempDatabase db;
};

TEST_F(TransactionTest, NestedScopesShareOneBeginAndOneCommit) {
  const StatementLog log(*db->connection());
  db->transaction([&](Cursor& outer) {
    EXPECT_EQ(Access::tx_depth(*db), 1);
    EXPECT_EQ(Access::tx_owner(*db), std::this_thread::get_id());
    outer.execute("INSERT INTO t VALUES (1)");
    db->transaction([&](Cursor&) {
      EXPECT_EQ(Access::tx_depth(*db), 2);
      db->transaction([&](Cursor& inner) {
        EXPECT_EQ(Access::tx_depth(*db), 3);
        inner.execute("INSERT INTO t VALUES (2)");
      });
      db->execute("INSERT INTO t VALUES (4)");
      db->executemany("INSERT INTO t VALUES (?)", {{8}, {16}});
    });
    EXPECT_EQ(Access::tx_depth(*db), 1);
    EXPECT_THROW(db->transaction([](Cursor& cursor) {
      cursor.execute("INSERT INTO t VALUES (32)");
      throw 42;
    }),
                 int);
    EXPECT_EQ(Access::tx_depth(*db), 1) << "an error in an inner scope left it counted";
    EXPECT_EQ(Access::tx_owner(*db), std::this_thread::get_id());
  });
  EXPECT_EQ(log.count("BEGIN"), 1);
  EXPECT_EQ(log.count("COMMIT"), 1);
  EXPECT_EQ(log.count("ROLLBACK"), 0);
  EXPECT_EQ(log.count("SAVEPOINT"), 0);
  EXPECT_EQ(sum(), "63") << "an error caught inside the outer scope undid something";
}

TEST_F(TransactionTest, AnythingThatLeavesTheOutermostScopeRollsAllOfItBack) {
  struct NoException {};
  const auto write = [&] {
    db->transaction([&](Cursor& cursor) { cursor.execute("INSERT INTO t VALUES (1)"); });
    db->execute("INSERT INTO t VALUES (2)");
    db->execute("PRAGMA user_version = 7");
  };
  EXPECT_THROW(db->transaction([&](Cursor&) { write(), throw 42; }), int);
  EXPECT_THROW(db->transaction([&](Cursor&) { write(), throw NoException(); }), NoException);
  EXPECT_THROW(db->transaction([&](Cursor&) { write(), throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_THROW(db->transaction([&](Cursor&) { write(), db->execute("INSERT INTO t VALUES (2)"); }),
               IntegrityError);
  EXPECT_THROW(db->transaction([&](Cursor&) {
    db->transaction([&](Cursor&) { write(), throw std::out_of_range("inner"); });
  }),
               std::out_of_range);
  EXPECT_EQ(sum(), "0");
  EXPECT_EQ(dump(*db, "PRAGMA user_version"), "0");
}

TEST_F(TransactionTest, ACommitThatFailsDiscardsEverything) {
  db->execute("CREATE TABLE child (i REFERENCES t (i) DEFERRABLE INITIALLY DEFERRED)");
  try {
    db->transaction([](Cursor& cursor) {
      cursor.execute("INSERT INTO t VALUES (1)");
      cursor.execute("INSERT INTO child VALUES (2)");
    });
    ADD_FAILURE() << "a broken foreign key was committed";
  } catch (const IntegrityError& error) {
    EXPECT_STREQ(error.what(), "FOREIGN KEY constraint failed") << "not COMMIT's own error";
  }
  EXPECT_EQ(sum(), "0");
}

TEST_F(TransactionTest, WhateverTheBodyDoesToTheTransactionItEnds) {
  struct Case {
    std::function<void(Cursor&)> body;
    std::string error;  // of the scope's end, "" for none
    std::string_view why;
  };
  std::optional<Cursor> stolen;
  const Case cases[] = {
      {[](Cursor& cursor) { cursor.execute("SELECT i FROM t"); }, "", "rows left unread"},
      {[](Cursor& cursor) { cursor.close(); }, "Cannot operate on a closed cursor.", "closed"},
      {[&](Cursor& cursor) {
         cursor.execute("SELECT 1 UNION SELECT 2");
         stolen = std::move(cursor);
       },
       "Cannot operate on a cursor that was moved from.", "the cursor was moved away"},
      {[](Cursor& cursor) { cursor.execute("ROLLBACK"); },
       "cannot commit - no transaction is active", "rolled back by hand"},
      {[](Cursor& cursor) { cursor.execute("BEGIN"); },
       "cannot start a transaction within a transaction", "begun twice"},
      {[&](Cursor&) { db->close(); }, "Cannot operate on a closed database.",
       "the owner closed the database"},
  };
  for (const auto& [body, expected, why] : cases) {
    SCOPED_TRACE(why);
    if (db->closed()) db->connect();
    std::string error;
    try {
      db->transaction([&](Cursor& cursor) {
        db->execute("INSERT INTO t VALUES (1)");
        body(cursor);
      });
    } catch (const Error& caught) {
      error = caught.what();
    }
    EXPECT_EQ(error, expected);
    EXPECT_EQ(Access::tx_depth(*db), 0);
    if (db->closed()) continue;
    EXPECT_EQ(sum(), expected.empty() ? "1" : "0");
    db->execute("DELETE FROM t");
  }
}

TEST_F(TransactionTest, ABeginThatFailsEndsThePlainTransactionInItsWay) {
  db->execute("BEGIN");
  db->execute("INSERT INTO t VALUES (1)");
  bool ran = false;
  EXPECT_THROW(db->transaction([&](Cursor&) { ran = true; }), OperationalError);
  EXPECT_FALSE(ran);
  EXPECT_EQ(sum(), "0");
}

TEST_F(TransactionTest, NeedsAnOpenDatabase) {
  Database unconnected(db.directory / "other.db");
  db->close();
  for (Database* const database : {&unconnected, &*db}) {
    const std::string expected = database == &unconnected
                                     ? "Database not connected. Call connect() first."
                                     : "Database is closed.";
    const auto refuses = [&](auto operation) {
      try {
        operation();
        ADD_FAILURE() << "ran on a database that is not open";
      } catch (const RuntimeError& error) {
        EXPECT_EQ(error.what(), expected);
      }
      EXPECT_EQ(Access::tx_depth(*database), 0);
      EXPECT_FALSE(Access::lock(*database).held_by_this_thread());
    };
    refuses([&] { database->transaction([](Cursor&) {}); });
    refuses([&] { database->execute("SELECT 1"); });
    refuses([&] { database->executemany("SELECT 1", {}); });
  }
}

TEST_F(TransactionTest, AnotherThreadsStatementWaitsAndStandsByItself) {
  std::future<void> other;
  EXPECT_THROW(db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO t VALUES (1)");
    other = std::async(std::launch::async, [&] { db->execute("INSERT INTO t VALUES (2)"); });
    EXPECT_FALSE(finished(other, 50ms)) << "ran inside another thread's transaction";
    throw 42;
  }),
               int);
  EXPECT_TRUE(finished(other));
  EXPECT_NO_THROW(other.get());
  EXPECT_EQ(sum(), "2");
}

TEST_F(TransactionTest, ExecutemanyOutsideAScopeCommitsEachElement) {
  EXPECT_THROW(db->executemany("INSERT INTO t VALUES (?)", {{1}, {2}, {2}, {4}}), IntegrityError);
  EXPECT_EQ(sum(), "3");
  EXPECT_EQ(db->executemany("INSERT INTO t VALUES (?)", {{4}, {8}}).rowcount(), 2);
  EXPECT_THROW(db->transaction([&](Cursor&) {
    db->executemany("INSERT INTO t VALUES (?)", {{16}, {16}});
  }),
               IntegrityError);
  EXPECT_EQ(sum(), "15");
}

TEST_F(TransactionTest, ARollbackThatReadsBlockBehindStillHappens) {
  // A reader of the writer connection itself stands on a row while the scope ends.
  db->execute("INSERT INTO t VALUES (1), (2)");
  Cursor reader = db->execute("SELECT i FROM t ORDER BY i");
  reader.fetchone();
  EXPECT_THROW(db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO t VALUES (4)");
    cursor.execute("CREATE TABLE made (i)");
    throw 42;
  }),
               int);
  EXPECT_EQ(sum(), "3");
}

/// Leaves SQLite no byte of memory more than it has, in the whole process.
class ExhaustedMemory {
 public:
  ExhaustedMemory() { sqlite3_hard_heap_limit64(sqlite3_memory_used()); }
  ExhaustedMemory(const ExhaustedMemory&) = delete;
  ExhaustedMemory& operator=(const ExhaustedMemory&) = delete;
  ~ExhaustedMemory() { sqlite3_hard_heap_limit64(0); }
};

TEST_F(TransactionTest, MemoryThatRunsOutInTheBodyLeavesNoTransactionOpen) {
  // Making an index or attaching a file makes SQLite prepare its statements anew at their next run,
  // the ROLLBACK included.
  for (const char* const change : {"INSERT INTO t VALUES (2)", "CREATE INDEX made ON t (i + 1)",
                                   "ANALYZE", "ATTACH DATABASE ':memory:' AS another"}) {
    SCOPED_TRACE(change);
    EXPECT_THROW(db->transaction([&](Cursor& cursor) {
      cursor.execute("INSERT INTO t VALUES (1)");
      cursor.execute(change);
      const ExhaustedMemory exhausted;
      cursor.execute("INSERT INTO t SELECT value FROM json_each(?)", {std::string(9'999, ' ')});
    }),
                 OperationalError);
    EXPECT_NE(sqlite3_get_autocommit(db->connection()->handle()), 0);
    EXPECT_EQ(sum(), "0");
  }
}

TEST_F(TransactionTest, ARollbackWithoutMemoryIsMadeGoodBeforeTheNextStatement) {
  std::optional<ExhaustedMemory> exhausted;
  EXPECT_THROW(db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO t VALUES (1)");
    cursor.execute("CREATE INDEX made ON t (i + 1)");
    exhausted.emplace();
    throw 42;
  }),
               int);
  EXPECT_THROW(db->execute("INSERT INTO t VALUES (2)"), OperationalError)
      << "a write was acknowledged without memory for it";
  exhausted.reset();
  db->execute("INSERT INTO t VALUES (4)");
  EXPECT_EQ(sum(), "4");
}

}  // namespace
}  // namespace veldra
