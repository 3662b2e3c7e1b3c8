// A connection takes any file name as it is, trusts no schema, and ends everything when it closes.
#include "veldra/sqlite/connection.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <future>

#include "support/finished.h"
#include "support/temp_database.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;

TEST(ConnectionTest, ClosingEndsEveryStatementAndTransactionWhoeverHoldsACursor) {
  for (const bool from_another_thread : {false, true}) {
    const TempDirectory directory;
    std::optional<Connection> connection(directory / "a.db");
    connection->execute("PRAGMA journal_mode=WAL");
    connection->execute("CREATE TABLE t AS SELECT 1 AS i UNION ALL SELECT 2");
    Cursor half_read = connection->execute("SELECT i FROM t");
    const Row row = *half_read.fetchone();
    Cursor writer = connection->execute("BEGIN IMMEDIATE");
    writer.execute("INSERT INTO t VALUES (4) RETURNING i");

    const auto close = [&] { connection->close(); };
    if (from_another_thread)
      std::async(std::launch::async, close).get();
    else
      close();
    close();

    EXPECT_FALSE(std::filesystem::exists(directory / "a.db-wal")) << "the file was not closed";
    EXPECT_EQ(row["i"].as_integer(), 1);
    for (Cursor* cursor : {&half_read, &writer}) {
      EXPECT_THROW(cursor->fetchone(), ProgrammingError);
      EXPECT_THROW(cursor->fetchall(), ProgrammingError);
      EXPECT_THROW(cursor->execute("SELECT 1"), ProgrammingError);
      EXPECT_THROW(cursor->executemany("SELECT 1", {}), ProgrammingError);
      EXPECT_THROW((void)cursor->rowcount(), ProgrammingError);
    }
    EXPECT_THROW(connection->cursor(), ProgrammingError);
    EXPECT_THROW(connection->execute(""), ProgrammingError);
    connection.reset();
    EXPECT_THROW(half_read.fetchone(), ProgrammingError) << "the connection itself is gone";
    half_read.close();

    Connection again(directory / "a.db");
    EXPECT_EQ(dump(again, "SELECT sum(i) FROM t"), "3") << "the open transaction was kept";
  }
}

TEST(ConnectionTest, ClosingWaitsForTheStatementThatAnotherThreadRuns) {
  Connection connection(":memory:");
  std::promise<void> running;
  std::promise<void> go_on;
  const auto block = [](sqlite3_context* context, int, sqlite3_value**) {
    (*static_cast<std::function<void()>*>(sqlite3_user_data(context)))();
  };
  std::function<void()> meet = [&] {
    running.set_value();
    go_on.get_future().wait();
  };
  sqlite3_create_function(connection.handle(), "meet", 0, SQLITE_UTF8, &meet, block, nullptr,
                          nullptr);
  std::future<void> statement =
      std::async(std::launch::async, [&] { connection.execute("SELECT meet()"); });
  ASSERT_TRUE(finished(running.get_future()));
  std::future<void> closing = std::async(std::launch::async, [&] { connection.close(); });
  EXPECT_FALSE(finished(closing, 50ms)) << "closed under a running statement";
  go_on.set_value();
  EXPECT_TRUE(finished(closing));
  EXPECT_NO_THROW(statement.get());
}

TEST(ConnectionTest, APathIsAPlainFileNameWhateverItLooksLike) {
  const TempDirectory directory;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());  // names that begin like a URI are relative ones
  for (const char* const name :
       {"file:x?mode=memory", "file:y.db?cache=shared", ":x", "a?b=c", "a#b", "a%41b", "it's \"q\"",
        " blank ", "::memory:", "-wal", "\xff"}) {
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

TEST(ConnectionTest, ASchemaCallsOnlyFunctionsThatAreMarkedHarmless) {
  Connection connection(":memory:");
  const auto one = [](sqlite3_context* context, int, sqlite3_value**) {
    sqlite3_result_int(context, 1);
  };
  for (const auto& [name, flags] : {std::pair("plain", 0), std::pair("safe", SQLITE_INNOCUOUS)})
    sqlite3_create_function(connection.handle(), name, 0, SQLITE_UTF8 | flags, nullptr, one,
                            nullptr, nullptr);
  connection.execute("CREATE VIEW calls_safe AS SELECT safe()");
  connection.execute("CREATE VIEW calls_plain AS SELECT plain()");
  connection.execute("CREATE TABLE t (i)");
  connection.execute("CREATE TRIGGER r AFTER INSERT ON t BEGIN SELECT plain(); END");
  EXPECT_EQ(dump(connection, "SELECT *, plain() FROM calls_safe"), "1|1");
  EXPECT_THROW(connection.execute("SELECT * FROM calls_plain"), OperationalError);
  EXPECT_THROW(connection.execute("INSERT INTO t VALUES (1)"), OperationalError);
}

TEST(ConnectionTest, ATriggerMayWriteToAFullTextTable) {
  Connection connection(":memory:");
  connection.execute("CREATE TABLE files (id INTEGER PRIMARY KEY)");
  connection.execute("CREATE VIRTUAL TABLE chunks USING fts5 (text)");
  connection.execute("INSERT INTO files VALUES (1), (2), (4)");
  connection.execute("INSERT INTO chunks (rowid, text) VALUES (1, 'a'), (2, 'a'), (4, 'a')");
  static constexpr std::string_view DELETE = "DELETE FROM files WHERE id = ?";
  connection.execute(DELETE, {1});  // kept prepared from before the trigger
  connection.execute(
      "CREATE TRIGGER r AFTER DELETE ON files BEGIN DELETE FROM chunks WHERE rowid = old.id; END");
  Cursor cursor = connection.execute(DELETE, {2});
  EXPECT_EQ(cursor.rowcount(), 1);
  connection.execute("DELETE FROM files WHERE id >= 4");
  EXPECT_EQ(dump(connection, "SELECT group_concat(rowid) FROM chunks('a')"), "1");
}

}  // namespace
}  // namespace veldra
