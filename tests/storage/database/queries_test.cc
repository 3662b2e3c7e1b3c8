// Queries that only read run beside every writer; the rest, and what a reader cannot do, run on the
// writer.
#include "support/database_test.h"
#include "support/environment.h"

namespace veldra {
namespace {

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
  static constexpr std::pair<const char*, bool> CASES[] = {
      {"SELECT count(*) FROM t", false}, {"PRAGMA user_version;", false},
      {"PRAGMA page_count", true},       {"VALUES (2)", true},
      {"/**/ SELECT 2", true},
  };
  for (const auto& [sql, on_writer] : CASES) {
    db->fetchall(sql);
    EXPECT_EQ(log->count(sql), on_writer ? 1 : 0) << sql;
    db->transaction([&, text = sql](Cursor&) { db->fetchone(text); });
    EXPECT_EQ(log->count(sql), on_writer ? 2 : 1) << sql << " inside the caller's transaction";
  }
  EXPECT_FALSE(db->fetchone("SELECT i FROM t WHERE i = ?", {4}));
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
