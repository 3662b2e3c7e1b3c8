// Queries that only read run beside every writer; the rest, and what a reader cannot do, run on the
// writer.
#include <gtest/gtest.h>

#include <future>

#include "support/database_test_access.h"
#include "support/environment.h"
#include "support/finished.h"
#include "support/statement_log.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using Access = DatabaseTestAccess;

TEST(IsReadStatementTest, JudgesByHowTheStatementBegins) {
  struct Case {
    std::string_view sql;
    bool reads;
    std::string_view why;
  };
  static constexpr Case cases[] = {
      {" \n\v select 1", true, "leading white space and letter case do not matter"},
      {"with t as (select 1) select * from t", true, "a query behind its tables"},
      {"WITH t AS (SELECT 1) INSERT INTO files(path) SELECT 'a' FROM t", true,
       "only the beginning is looked at; the read connection refuses the write itself"},
      {"SELECTED", true, "the word's end is not looked at"},
      {"PRAGMA user_version", true, "the one pragma that every process polls"},
      {"\t pragma USER_version \n;;; ", true, "white space around it and around the semicolons"},
      {"PRAGMA user_version; ;", false, "white space inside the run of semicolons"},
      {"PRAGMA  user_version", false, "two blanks"},
      {"PRAGMA main.user_version", false, "a schema prefix"},
      {"PRAGMA user_version = 3", false, "an assignment writes"},
      {"PRAGMA integrity_check", false, "another pragma"},
      {"-- note\nSELECT 1", false, "a comment is not a beginning the router knows"},
      {"(SELECT 1)", false, "a bracket"},
      {"EXPLAIN SELECT 1", false, "an explanation"},
      {"VALUES (1)", false, "a list of values"},
      {"WIT", false, "half a word"},
      {"INSERT INTO t VALUES (1)", false, "a write"},
      {"", false, "nothing"},
  };
  for (const auto& [sql, reads, why] : cases) {
    SCOPED_TRACE(sql);
    EXPECT_EQ(_is_read_statement(sql), reads) << why;
  }
}

TEST(ReaderCannotServeTest, LooksForTwoPhrasesInAnyLetterCase) {
  struct Case {
    const char* message;
    bool cannot;
  };
  static constexpr Case cases[] = {
      {"attempt to write a readonly database", true},
      {"UNABLE TO OPEN DATABASE FILE", true},
      {"x: Unable To Open Database File: y", true},
      {"no such table: files", false},
      {"database is locked", false},
      {"unable to open database", false},
      {"", false},
  };
  for (const auto& [message, cannot] : cases)
    EXPECT_EQ(_reader_cannot_serve(OperationalError(message)), cannot) << message;
}

class QueriesTest : public ::testing::Test {
 protected:
  QueriesTest() {
    db->execute("CREATE TABLE t (i INTEGER PRIMARY KEY)");
    db->execute("INSERT INTO t VALUES (1), (2)");
    log.emplace(*db->connection());
  }

  TempDatabase db;
  std::optional<StatementLog> log;  // of the writer; ends before it
};

TEST_F(QueriesTest, EachStatementRunsOnItsConnection) {
  struct Case {
    const char* sql;
    bool on_writer;
  };
  static constexpr Case cases[] = {
      {"SELECT count(*) FROM t", false},
      {" with w as (select 2) select * from w", false},
      {"PRAGMA user_version;", false},
      {"PRAGMA page_count", true},
      {"VALUES (2)", true},
      {"/**/ SELECT 2", true},
  };
  for (const auto& [sql, on_writer] : cases) {
    db->fetchall(sql);
    EXPECT_EQ(log->count(sql) == 1, on_writer) << sql;
  }
  db->transaction([&](Cursor&) {
    for (const auto& [sql, on_writer] : cases) {
      db->fetchone(sql);
      EXPECT_EQ(log->count(sql), on_writer ? 2 : 1) << sql << " inside the caller's transaction";
    }
  });
}

TEST_F(QueriesTest, AnswersNothingForNoRows) {
  EXPECT_FALSE(db->fetchone("SELECT i FROM t WHERE i = ?", {4}));
  EXPECT_TRUE(db->fetchall("SELECT i FROM t WHERE i = ?", {4}).empty());
  EXPECT_EQ(db->fetchall("SELECT i FROM t ORDER BY i").size(), 2U);
  EXPECT_EQ(Access::count(*db, "SELECT COUNT(*) FROM t"), 2);
  EXPECT_EQ(Access::count(*db, "SELECT COUNT(*) FROM t HAVING 0"), 0);
}

TEST_F(QueriesTest, AWriteBehindAWithIsRefusedByTheReaderAndDoneOnceByTheWriter) {
  const std::vector<Row> rows = db->fetchall(
      "WITH w AS (SELECT 4 AS i UNION SELECT 8) INSERT INTO t SELECT i FROM w RETURNING i");
  EXPECT_EQ(rows.size(), 2U);
  EXPECT_EQ(log->count("WITH"), 1);
  EXPECT_EQ(dump(*db, "SELECT sum(i) FROM t"), "15");
}

TEST_F(QueriesTest, AnyOtherErrorOfAReaderReachesTheCaller) {
  EXPECT_THROW(db->fetchone("SELECT * FROM missing"), OperationalError);
  EXPECT_THROW(db->fetchone("SELECT 1", {1}), ProgrammingError);
  EXPECT_EQ(log->statements().size(), 0U) << "tried again on the writer";
  // A table that the writer alone has: it would answer.
  db->execute("CREATE TEMP TABLE private (i)");
  EXPECT_THROW(db->fetchall("SELECT * FROM private"), OperationalError);
  // Every connection came back: one more query than there are readers.
  for (int i = 0; i <= _DEFAULT_READERS; ++i) {
    EXPECT_THROW(db->fetchone("SELECT * FROM missing"), OperationalError);
    db->fetchone("SELECT 1");
  }
  EXPECT_EQ(log->count("SELECT 1"), 0) << "a lease was not given back";
}

TEST_F(QueriesTest, TheOwnerSeesItsOwnWritesAndAnotherThreadReturnsAtOnceWithout) {
  const auto seen = [&] { return dump(*db, "SELECT sum(i) FROM t"); };
  db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO t VALUES (4)");
    EXPECT_EQ(seen(), "7");
    db->transaction([&](Cursor&) { EXPECT_EQ(seen(), "7") << "in a nested scope"; });
    std::future<std::string> other = std::async(std::launch::async, seen);
    ASSERT_TRUE(finished(other)) << "a query waited for a writer";
    EXPECT_EQ(other.get(), "3") << "saw what was not committed";
  });
  EXPECT_EQ(seen(), "7");
}

TEST_F(QueriesTest, WithoutAReaderTheWriterAnswers) {
  {
    std::vector<ReaderPool::Lease> loans;
    for (int i = 0; i < _DEFAULT_READERS; ++i) loans.push_back(Access::readers(*db)->lease());
    EXPECT_EQ(dump(*db, "SELECT 'all lent'"), "all lent");
    EXPECT_EQ(log->count("SELECT 'all lent'"), 1);
  }
  Access::readers(*db)->close();
  EXPECT_EQ(dump(*db, "SELECT 'refused'"), "refused");
  EXPECT_EQ(log->count("SELECT 'refused'"), 1);

  log.reset();
  db->close();
  const EnvironmentVariable none(_READERS_ENV, "0");
  db->connect();
  log.emplace(*db->connection());
  EXPECT_EQ(dump(*db, "SELECT 'no pool'"), "no pool");
  EXPECT_EQ(log->count("SELECT 'no pool'"), 1);
  Access::lock(*db).lock();
  std::future<std::string> other =
      std::async(std::launch::async, [&] { return dump(*db, "SELECT 1"); });
  EXPECT_FALSE(finished(other, 50ms)) << "the writer connection was used without the lock";
  Access::lock(*db).unlock();
  EXPECT_TRUE(finished(other));
}

TEST_F(QueriesTest, ReadersThatCannotOpenTheFileLeaveItToTheWriter) {
  // What the first read connection meets when the file was moved away: the writer has it open.
  log.reset();
  db->close();
  db->connect();
  log.emplace(*db->connection());
  std::filesystem::rename(db->db_path, db.directory / "moved.db");
  EXPECT_EQ(dump(*db, "SELECT sum(i) FROM t"), "3");
  EXPECT_EQ(log->count("SELECT sum"), 1);
  std::filesystem::rename(db.directory / "moved.db", db->db_path);
}

TEST(QueriesWithoutDatabaseTest, NeedAnOpenDatabase) {
  TempDatabase db(TempDatabase::State::Unconnected);
  for (const char* const sql : {"SELECT 1", "PRAGMA user_version", "VALUES (1)"}) {
    try {
      db->fetchall(sql);
      ADD_FAILURE() << sql << " ran without a database";
    } catch (const RuntimeError& error) {
      EXPECT_STREQ(error.what(), "Database not connected. Call connect() first.");
    }
  }
}

}  // namespace
}  // namespace veldra
