// Scopes commit or roll back as a whole, nest, and always leave the connection in autocommit.
#include <sqlite3.h>

#include <thread>

#include "support/database_test.h"

namespace veldra {
namespace {

/// After each test: no scope is open, the lock is free, the connection in autocommit, and what is
/// written is there to stay.
class TransactionTest : public ::testing::Test {
 protected:
  TransactionTest() { db->execute("CREATE TABLE t (i INTEGER PRIMARY KEY)"); }

  void TearDown() override {
    EXPECT_EQ(Access::tx_depth(*db), 0);
    EXPECT_EQ(Access::tx_owner(*db), std::thread::id());
    if (db->closed()) db->connect();
    EXPECT_NE(sqlite3_get_autocommit(db->connection()->handle()), 0) << "a transaction is open";
    const auto write = [&] { db->execute("INSERT INTO t VALUES (1024)"); };
    std::future<void> another = std::async(std::launch::async, write);
    EXPECT_TRUE(finished(another)) << "the lock was kept";
    Connection other(db->db_path);
    EXPECT_EQ(dump(other, "SELECT count(*) FROM t WHERE i = 1024"), "1") << "a write was lost";
  }

  /// The sum of the table, which is made of powers of two.
  std::string sum() { return dump(*db, "SELECT ifnull(sum(i), 0) FROM t"); }

  TempDatabase db;
};

TEST_F(TransactionTest, NestedScopesShareOneBeginAndOneCommit) {
  const StatementLog log(*db->connection());
  db->transaction([&](Cursor& outer) {
    outer.execute("INSERT INTO t VALUES (1)");
    db->transaction([&](Cursor& inner) {
      inner.execute("INSERT INTO t VALUES (2)");
      db->execute("INSERT INTO t VALUES (4)");
      db->executemany("INSERT INTO t VALUES (?)", {{8}, {16}});
    });
    EXPECT_THROW(db->transaction([](Cursor& cursor) {
      cursor.execute("INSERT INTO t VALUES (32)");
      throw 42;
    }),
                 int);
    EXPECT_EQ(Access::tx_depth(*db), 1) << "an error in an inner scope left it counted";
  });
  EXPECT_EQ(log.count("BEGIN"), 1);
  EXPECT_EQ(log.count("COMMIT"), 1);
  EXPECT_EQ(log.count("ROLLBACK") + log.count("SAVEPOINT"), 0);
  EXPECT_EQ(sum(), "63") << "an error caught inside the outer scope undid something";
}

TEST_F(TransactionTest, AnythingThatLeavesTheOutermostScopeRollsAllOfItBack) {
  struct NoException {};
  // A statement of the connection that stands on a row meanwhile does not block the rollback.
  Cursor reader = db->execute("SELECT 1 UNION ALL SELECT i FROM t");
  reader.fetchone();
  const auto write = [&] {
    db->transaction([&](Cursor& cursor) { cursor.execute("INSERT INTO t VALUES (1)"); });
    db->execute("INSERT INTO t VALUES (2)");
    db->execute("CREATE TABLE made (i)");
  };
  EXPECT_THROW(db->transaction([&](Cursor&) { write(), throw NoException(); }), NoException);
  EXPECT_THROW(db->transaction([&](Cursor&) { write(), db->execute("INSERT INTO t VALUES (2)"); }),
               IntegrityError);
  EXPECT_THROW(db->transaction([&](Cursor&) {
    db->transaction([&](Cursor&) { write(), throw std::out_of_range("inner"); });
  }),
               std::out_of_range);
  EXPECT_EQ(sum(), "0");
}

TEST_F(TransactionTest, WhateverTheBodyDoesToTheTransactionItEnds) {
  db->execute("CREATE TABLE child (i REFERENCES t (i) DEFERRABLE INITIALLY DEFERRED)");
  const std::pair<std::function<void(Cursor&)>, std::string> cases[] = {
      {[](Cursor& cursor) { cursor.execute("INSERT INTO child VALUES (2)"); },
       "FOREIGN KEY constraint failed"},  // COMMIT's own error
      {[](Cursor& cursor) { cursor.execute("ROLLBACK"); },
       "cannot commit - no transaction is active"},
      {[](Cursor& cursor) { cursor.execute("BEGIN"); },
       "cannot start a transaction within a transaction"},
      {[&](Cursor&) { db->close(); }, "Cannot operate on a closed database."},
  };
  for (const auto& [body, error] : cases) {
    const auto run = [&, &ends = body](Cursor& cursor) {
      cursor.execute("INSERT INTO t VALUES (1)");
      ends(cursor);
    };
    EXPECT_THAT([&] { db->transaction(run); }, ThrowsMessage<Error>(error));
    EXPECT_EQ(Access::tx_depth(*db), 0) << error;
    if (db->closed()) db->connect();
    EXPECT_EQ(sum(), "0") << error;
  }
  std::optional<Cursor> stolen;
  db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO t VALUES (1)");
    stolen = std::move(cursor);
  });
  EXPECT_EQ(sum(), "1") << "COMMIT relies on the body's cursor";
}

}  // namespace
}  // namespace veldra
