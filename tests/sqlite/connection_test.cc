// A connection takes any file name as it is and ends everything when it closes.
#include "veldra/sqlite/connection.h"

#include <sqlite3.h>

#include "support/database_test.h"
#include "veldra/errors.h"
#include "veldra/sqlite/held_statement.h"

namespace veldra {
namespace {

TEST(ConnectionTest, ClosingEndsEveryStatementAndTransactionWhoeverHoldsACursor) {
  const TempDirectory directory;
  std::optional<Connection> connection(directory / "a.db");
  connection->execute("PRAGMA journal_mode=WAL");
  connection->execute("CREATE TABLE t AS SELECT 1 AS i UNION ALL SELECT 2");
  Cursor half_read = connection->execute("SELECT i FROM t");
  half_read.fetchone();
  Cursor writer = connection->execute("BEGIN IMMEDIATE");
  writer.execute("INSERT INTO t VALUES (4) RETURNING i");
  std::async(std::launch::async, [&] { connection->close(); }).get();
  connection->close();

  EXPECT_FALSE(std::filesystem::exists(directory / "a.db-wal")) << "the file was not closed";
  EXPECT_THROW(connection->execute(""), ProgrammingError);
  for (Cursor* cursor : {&half_read, &writer}) {
    EXPECT_THROW(cursor->fetchone(), ProgrammingError);
    EXPECT_THROW(cursor->execute("SELECT 1"), ProgrammingError);
  }
  connection.reset();
  EXPECT_THROW(half_read.fetchone(), ProgrammingError) << "the connection itself is gone";
  Connection again(directory / "a.db");
  EXPECT_EQ(dump(again, "SELECT sum(i) FROM t"), "3") << "the open transaction was kept";
}

TEST(ConnectionTest, ACloseThatSqliteRefusesEndsStatementsAndTransactionsAllTheSame) {
  TempDatabase db;
  sqlite3_stmt* hosts = nullptr;
  sqlite3_prepare_v2(db->connection()->handle(), "SELECT 1", -1, &hosts, nullptr);
  Cursor cursor = db->execute("SELECT 1 UNION SELECT 2");
  Cursor unread = db->execute("SELECT 1 UNION SELECT 3");
  cursor.fetchone();
  EXPECT_THROW(db->transaction([&](Cursor& scope) {
    scope.execute("CREATE TABLE t (i)");
    db->close();
  }),
               OperationalError);
  EXPECT_NE(sqlite3_get_autocommit(db->connection()->handle()), 0) << "the scope ended without end";
  for (Cursor* const each : {&cursor, &unread}) {
    EXPECT_THAT([&] { each->fetchone(); },
                ThrowsMessage<ProgrammingError>("Cannot operate on a closed database."));
  }
  sqlite3_finalize(hosts);
  EXPECT_NO_THROW(db->close());
}

/// A database whose writer calls back what is set here, from the SQL function `again()`.
class ReentryTest : public ::testing::Test {
 protected:
  using Callback = std::function<void()>;

  ReentryTest() {
    const auto call = [](sqlite3_context* context, int, sqlite3_value**) {
      (*static_cast<Callback*>(sqlite3_user_data(context)))();
    };
    sqlite3_create_function(db->connection()->handle(), "again", 0, SQLITE_UTF8, &callback, call,
                            nullptr, nullptr);
  }

  TempDatabase db;
  Callback callback;
};

TEST_F(ReentryTest, ACallbackOfTheWriterIsRefusedWhateverItDoes) {
  Cursor kept = db->execute("SELECT 1 UNION SELECT 2");
  std::optional<Cursor> dropped = db->execute("SELECT 3 UNION SELECT 4");
  const std::shared_ptr<Connection> writer = db->connection();
  const Callback refused[] = {
      [&] { db->execute("SELECT 1"); },
      [&] { db->executemany("DELETE FROM files WHERE id = ?", {{1}}); },
      [&] { db->transaction([](Cursor&) {}); },
      [&] { db->fetchone("PRAGMA page_size"); },
      [&] { db->clear_all(); },
      [&] { db->migrate_schema(); },
      [&] { db->close(); },
      [&] { kept.fetchone(); },
      [&] { (void)kept.rowcount(); },
      [&] { writer->prepare_to_roll_back(); },
  };
  callback = [&] {
    for (const Callback& each : refused) {
      EXPECT_THAT(each, ThrowsMessage<ProgrammingError>(testing::HasSubstr("re-entered")));
    }
    EXPECT_EQ(db->fetchone("SELECT 1")->size(), 1U) << "a read connection has nothing against it";
    EXPECT_THAT(db->compact().skipped, testing::Optional(testing::HasSubstr("re-entered")));
    kept.close();
    writer->set_busy_timeout(Connection::BUSY_TIMEOUT);
    EXPECT_FALSE(writer->damaged() || writer->handle() == nullptr);
    if (dropped) writer->roll_back();
    dropped.reset();
  };
  const StatementWatch trace(*writer, [&](std::string_view sql) {
    if (sql == "SELECT 'traced'") callback();
  });
  for (const char* const sql : {"SELECT again()", "SELECT 'traced'"}) db->execute(sql);
  db->transaction([&](Cursor& cursor) {
    callback = [&] {
      EXPECT_THROW(db->fetchone("SELECT 1"), ProgrammingError);
      cursor.close();  // the one that is running
    };
    cursor.execute(
        "INSERT INTO files (path, language, hash) VALUES ('a', '', ''), ('b', '', '')"
        " RETURNING again()");
    EXPECT_THROW(cursor.fetchone(), ProgrammingError);
  });
  EXPECT_EQ(writer->held_statement(), "")
      << "a cursor that was closed meanwhile holds its statement";
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM files"), "2");
}

TEST_F(ReentryTest, ACallbackWaitsForNoThreadThatWaitsForItsCall) {
  // this thread      writer
  // fetches a row
  //                  holds the connection lock, waits for the fetch
  // calls back
  Cursor cursor = db->execute("SELECT 1 UNION ALL SELECT again()");
  cursor.fetchone();
  std::future<void> another;
  callback = [&] {
    another = std::async(std::launch::async, [&] { db->execute("DELETE FROM files"); });
    while (Access::lock(*db).try_lock()) Access::lock(*db).unlock();
    EXPECT_THROW(db->execute("SELECT 1"), ProgrammingError);
    EXPECT_THROW(db->close(), ProgrammingError);
  };
  cursor.fetchone();
  EXPECT_TRUE(finished(another));
}

TEST(ConnectionTest, WhereTheHostSharesCachesNobodyMeetsTheLocksOfAnother) {
  ASSERT_EQ(sqlite3_enable_shared_cache(1), SQLITE_OK);
  TempDatabase db;
  db->transaction([&](Cursor& cursor) {
    cursor.execute("DELETE FROM files");
    EXPECT_NO_THROW(std::async([&] { db->fetchall("SELECT * FROM files"); }).get());
  });
  sqlite3_enable_shared_cache(0);
}

TEST(ConnectionTest, ARefusalNamesTheStatementThatIsHeld) {
  const TempDirectory directory;
  Connection connection(directory / "a.db");
  Connection other(directory / "a.db");
  connection.execute("PRAGMA journal_mode=WAL");
  connection.execute("CREATE TABLE t AS SELECT 1 AS i UNION ALL SELECT 2");
  connection.execute("ATTACH ':memory:' AS stg");
  connection.execute("CREATE VIRTUAL TABLE stg.words USING fts5(w)");
  connection.execute("INSERT INTO words VALUES ('a'), ('a b')");
  other.set_busy_timeout(0ms);
  const auto refusal = [](Connection& of, const char* sql) -> std::string {
    try {
      naming_held_statement(of, [&] { of.execute(sql); });
      return "";
    } catch (const OperationalError& error) {
      return error.what();
    }
  };
  Cursor cursor =
      connection.execute("SELECT i FROM t, words WHERE w MATCH 'a' ORDER BY words.rank");
  const std::string held = "; a cursor holds " + connection.held_statement();
  EXPECT_EQ(held, "; a cursor holds SELECT i FROM t, words WHERE w MATCH 'a' ORDER BY words.rank");
  EXPECT_EQ(refusal(connection, "DROP TABLE t"), "database table is locked" + held);
  EXPECT_EQ(refusal(connection, "DETACH stg"), "database stg is locked" + held);
  other.execute("BEGIN IMMEDIATE");
  EXPECT_EQ(refusal(connection, "DELETE FROM t"), "database is locked") << "by another connection";
  other.execute("DELETE FROM t");
  other.execute("COMMIT");
  EXPECT_EQ(refusal(connection, "INSERT INTO t VALUES (3)"), "database is locked" + held);
  cursor.close();
  EXPECT_EQ(connection.held_statement() + refusal(connection, "DROP TABLE t"), "");
}

TEST(ConnectionTest, APathIsAPlainFileNameWhateverItLooksLike) {
  const TempDirectory directory;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());  // names that begin like a URI are relative ones
  for (const char* const name :
       {"file:x?mode=memory", ":x", "a?b=c", "a#b", "a%41b", " blank ", "::memory:", "\xff"}) {
    Connection connection(name);
    connection.execute("CREATE TABLE t AS SELECT 1");
    EXPECT_TRUE(std::filesystem::exists(std::string("./") + name)) << name;
    Connection reader(name, Connection::Mode::ReadOnly);
    EXPECT_EQ(dump(reader, "SELECT * FROM t"), "1") << name;
  }
  Connection memory(":memory:");
  memory.execute("CREATE TABLE t AS SELECT 1");
  EXPECT_FALSE(std::filesystem::exists(":memory:"));
  EXPECT_THROW(Connection(""), OperationalError) << "a database without a name was opened";
  EXPECT_THROW(Connection(std::string("a\0b", 3)), ProgrammingError);
  EXPECT_THROW(Connection("missing", Connection::Mode::ReadOnly), OperationalError);
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace veldra
