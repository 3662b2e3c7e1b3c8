// Queries that only read run beside every writer; the rest, and what a reader cannot do, run on the
// writer.
#include "support/database_test.h"
#include "support/environment.h"

namespace veldra {
namespace {

TEST(IsReadStatementTest, JudgesByHowTheStatementBegins) {
  static constexpr std::tuple<std::string_view, bool, std::string_view> cases[] = {
      {" \n\v select 1", true, "leading white space and letter case do not matter"},
      {"WITH t AS (SELECT 1) INSERT INTO files(path) SELECT 'a' FROM t", true,
       "only the beginning is looked at; the read connection refuses the write itself"},
      {"SELECTED", true, "the word's end is not looked at"},
      {"\t pragma USER_version \n;;; ", true, "white space around it and around the semicolons"},
      {"PRAGMA user_version; ;", false, "white space inside the run of semicolons"},
      {"PRAGMA  user_version", false, "two blanks"},
      {"PRAGMA main.user_version", false, "a schema prefix"},
      {"PRAGMA user_version = 3", false, "an assignment writes"},
      {"-- note\nSELECT 1", false, "a comment is not a beginning the router knows"},
      {"(SELECT 1)", false, "a bracket"},
      {"EXPLAIN SELECT 1", false, "an explanation"},
      {"WIT", false, "half a word"},
      {"", false, "nothing"},
  };
  for (const auto& [sql, reads, why] : cases) EXPECT_EQ(_is_read_statement(sql), reads) << why;
}

TEST(ReaderCannotServeTest, LooksForTwoPhrasesInAnyLetterCase) {
  for (const char* const message :
       {"attempt to write a readonly database", "x: Unable To OPEN Database File: y"})
    EXPECT_TRUE(_reader_cannot_serve(OperationalError(message))) << message;
  for (const char* const message : {"no such table: files", "unable to open database", ""})
    EXPECT_FALSE(_reader_cannot_serve(OperationalError(message))) << message;
}

class QueriesTest : public ::testing::Test {
 protected:
  QueriesTest() {
    db->execute("CREATE TABLE t (i INTEGER PRIMARY KEY)");
    db->execute("INSERT INTO t VALUES (1), (2)");
    reconnect();
  }

  void reconnect() {
    log.reset();
    db->close();
    db->connect();
    log.emplace(*db->connection());
  }

  TempDatabase db;
  std::optional<StatementLog> log;  // of the writer; ends before it
};

TEST_F(QueriesTest, EachStatementRunsOnItsConnection) {
  static constexpr std::pair<const char*, bool> cases[] = {
      {"SELECT count(*) FROM t", false},
      {" with w as (select 2) select * from w", false},
      {"PRAGMA user_version;", false},
      {"PRAGMA page_count", true},
      {"VALUES (2)", true},
      {"/**/ SELECT 2", true},
  };
  for (const auto& [sql, on_writer] : cases) {
    db->fetchall(sql);
    EXPECT_EQ(log->count(sql), on_writer ? 1 : 0) << sql;
    db->transaction([&, text = sql](Cursor&) { db->fetchone(text); });
    EXPECT_EQ(log->count(sql), on_writer ? 2 : 1) << sql << " inside the caller's transaction";
  }
  EXPECT_FALSE(db->fetchone("SELECT i FROM t WHERE i = ?", {4}));
  EXPECT_EQ(Access::count(*db, "SELECT COUNT(*) FROM t HAVING 0"), 0);
  // A write behind a WITH is refused by the reader and done once by the writer.
  db->fetchall("WITH w AS (SELECT 4 AS i) INSERT INTO t SELECT i FROM w RETURNING i");
  EXPECT_EQ(log->count("WITH"), 1);
  EXPECT_EQ(dump(*db, "SELECT sum(i) FROM t"), "7");
}

TEST_F(QueriesTest, AnyOtherErrorOfAReaderReachesTheCaller) {
  EXPECT_THROW(db->fetchone("SELECT 1", {1}), ProgrammingError);
  // A table that the writer alone has: it would answer.
  db->execute("CREATE TEMP TABLE private (i)");
  // Every connection comes back: one more query than there are readers.
  for (int i = 0; i <= _DEFAULT_READERS; ++i)
    EXPECT_THROW(db->fetchall("SELECT * FROM private"), OperationalError);
  db->fetchone("SELECT 1");
  EXPECT_EQ(log->count("SELECT"), 0) << "tried again on the writer, or a lease was not given back";
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
  const auto expect_on_writer = [&](const std::string& why) {
    EXPECT_EQ(dump(*db, "SELECT '" + why + "', sum(i) FROM t"), why + "|3");
    EXPECT_EQ(log->count("SELECT '" + why), 1);
  };
  // The writer has the file open; the first read connection looks for it.
  std::filesystem::rename(db->db_path, db.directory / "moved.db");
  expect_on_writer("moved");
  std::filesystem::rename(db.directory / "moved.db", db->db_path);
  {
    std::vector<ReaderPool::Lease> loans;
    for (int i = 0; i < _DEFAULT_READERS; ++i) loans.push_back(Access::readers(*db)->lease());
    expect_on_writer("all lent");
  }
  Access::readers(*db)->close();
  expect_on_writer("closed");
  const EnvironmentVariable none(_READERS_ENV, "0");
  reconnect();
  expect_on_writer("no pool");
  Access::lock(*db).lock();
  const auto other = std::async(std::launch::async, [&] { dump(*db, "SELECT 1"); });
  EXPECT_FALSE(finished(other, 50ms)) << "the writer connection was used without the lock";
  Access::lock(*db).unlock();
  EXPECT_TRUE(finished(other));
}

}  // namespace
}  // namespace veldra
