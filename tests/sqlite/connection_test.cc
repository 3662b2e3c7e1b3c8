// A connection takes any file name as it is and ends everything when it closes.
#include "veldra/sqlite/connection.h"

#include <sqlite3.h>

#include "support/database_test.h"
#include "veldra/errors.h"

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
  EXPECT_THROW(db->transaction([&](Cursor& scope) {
    scope.execute("CREATE TABLE t (i)");
    db->close();
  }),
               OperationalError);
  EXPECT_NE(sqlite3_get_autocommit(db->connection()->handle()), 0) << "the scope ended without end";
  EXPECT_THAT([&] { cursor.fetchone(); },
              ThrowsMessage<ProgrammingError>("Cannot operate on a closed database."));
  sqlite3_finalize(hosts);
  EXPECT_NO_THROW(db->close());
}

TEST(ConnectionTest, ACallbackOfTheWriterIsRefusedWhateverItDoes) {
  using Callback = std::function<void()>;
  Callback callback;
  TempDatabase db;
  const std::shared_ptr<Connection> writer = db->connection();
  const auto again = [](sqlite3_context* context, int, sqlite3_value**) {
    (*static_cast<Callback*>(sqlite3_user_data(context)))();
  };
  sqlite3_create_function(writer->handle(), "again", 0, SQLITE_UTF8, &callback, again, nullptr,
                          nullptr);
  Cursor kept = db->execute("SELECT 1 UNION SELECT 2");
  std::optional<Cursor> dropped = db->execute("SELECT 3 UNION SELECT 4");
  std::future<void> another;
  callback = [&] {
    const Callback refused[] = {[&] { db->execute("SELECT 1"); },
                                [&] { db->transaction([](Cursor&) {}); },
                                [&] { db->fetchone("PRAGMA page_size"); },
                                [&] { db->close(); },
                                [&] { kept.fetchone(); },
                                [&] { writer->begin(); }};
    for (const Callback& each : refused)
      EXPECT_THAT(each, ThrowsMessage<ProgrammingError>(testing::HasSubstr("re-entered")));
    EXPECT_EQ(db->fetchone("SELECT 1")->size(), 1U) << "a read connection has nothing against it";
    kept.close();
    dropped.reset();
    writer->set_busy_timeout(Connection::BUSY_TIMEOUT);
    EXPECT_FALSE(writer->damaged() || writer->handle() == nullptr);
    writer->roll_back();
    // It waits for this call to end, and holds the connection lock.
    another = std::async(std::launch::async, [&] { db->execute("DELETE FROM files"); });
    while (Access::lock(*db).try_lock()) Access::lock(*db).unlock();
    EXPECT_THROW(db->execute("SELECT 1"), ProgrammingError);
  };
  Cursor cursor = db->execute("SELECT 1 UNION ALL SELECT again()");
  for (int row = 0; row < 2; ++row) cursor.fetchone();
  EXPECT_TRUE(finished(another));
  callback = [&] { cursor.close(); };  // the one that is running
  cursor.execute(
      "INSERT INTO components (name, path) VALUES ('a', ''), ('b', '') RETURNING again()");
  EXPECT_THROW(cursor.fetchone(), ProgrammingError);
  EXPECT_EQ(writer->held_statement(), "") << "a cursor closed meanwhile holds its statement";
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM components"), "2");
}

#ifndef SQLITE_OMIT_SHARED_CACHE
TEST(ConnectionTest, WhereTheHostSharesCachesNobodyMeetsTheLocksOfAnother) {
  ASSERT_EQ(sqlite3_enable_shared_cache(1), SQLITE_OK);
  TempDatabase db;
  db->transaction([&](Cursor& cursor) {
    cursor.execute("DELETE FROM files");
    EXPECT_NO_THROW(std::async([&] { db->fetchall("SELECT * FROM files"); }).get());
  });
  sqlite3_enable_shared_cache(0);
}
#endif

TEST(ConnectionTest, APathIsAPlainFileNameWhateverItLooksLike) {
  const TempDirectory directory;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());  // names that begin like a URI are relative ones
  for (const char* const name :
       {"file:x?mode=memory", ":x", "a?b=c", "a#b", "a%41b", " blank ", "::memory:", "\xff"}) {
    Connection connection(name);
    connection.execute("PRAGMA journal_mode=WAL");
    connection.execute("CREATE TABLE t AS SELECT 1");
    EXPECT_TRUE(std::filesystem::exists(std::string("./") + name)) << name;
    {
      Connection reader(name, Connection::Mode::ReadOnly);
      EXPECT_EQ(dump(reader, "SELECT * FROM t"), "1") << name;
    }
    connection.close();
    Connection reader(name, Connection::Mode::Immutable);
    EXPECT_EQ(dump(reader, "SELECT * FROM t"), "1") << name;
    EXPECT_FALSE(std::filesystem::exists(std::string("./") + name + "-shm")) << name;
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
