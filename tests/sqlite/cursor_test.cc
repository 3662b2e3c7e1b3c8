// A cursor runs one statement, counts what it changed and reads its rows when they are asked for.
#include "veldra/sqlite/cursor.h"

#include <sqlite3.h>

#include <tuple>

#include "support/database_test.h"
#include "veldra/errors.h"
#include "veldra/sqlite/held_statement.h"
#include "veldra/sqlite/statement.h"

namespace veldra {
namespace {

using namespace std::string_literals;

/// A connection to a file with a table of the rows (1, 'a'), (2, 'b'), (4, 'd').
class CursorTest : public ::testing::Test {
 protected:
  CursorTest() {
    connection.execute("PRAGMA journal_mode=WAL");
    connection.execute("CREATE TABLE t (id INTEGER PRIMARY KEY, name TEXT UNIQUE)");
    connection.execute("INSERT INTO t VALUES (1, 'a'), (2, 'b'), (4, 'd')");
    other.set_busy_timeout(0ms);
  }

  TempDirectory directory;
  Connection connection{directory / "a.db"};
  Connection other{directory / "a.db"};
};

TEST_F(CursorTest, CountsTheRowsThatTheLastStatementChanged) {
  static constexpr std::pair<std::string_view, std::int64_t> CASES[] = {
      {"INSERT INTO t VALUES (8, 'h'), (16, 'p')", 2},
      {"UPDATE t SET name = name || '!' WHERE id > 4", 2},
      {"REPLACE INTO t VALUES (4, 'e')", 1},
      {"INSERT OR IGNORE INTO t VALUES (4, 'e')", 0},
      {"/* c */ WITH w AS (SELECT 32) INSERT INTO t SELECT *, 'x' FROM w", 1},
      {"WITH w AS (SELECT 32 AS i) DELETE FROM t WHERE id IN (SELECT i FROM w) RETURNING id", 1},
      {"SELECT * FROM t", -1},
      {"CREATE TABLE made AS SELECT * FROM t", -1},
      {"EXPLAIN INSERT INTO t VALUES (9, 'i')", -1},
      {"DELETE FROM t", 5},
  };
  Cursor cursor = connection.cursor();
  for (const auto& [sql, rowcount] : CASES) {
    cursor.execute(sql);
    EXPECT_EQ(cursor.rowcount(), rowcount) << sql;
  }
  cursor.executemany("INSERT OR IGNORE INTO t VALUES (?, ?)", {{1, "a"}, {1, "again"}, {2, "b"}});
  EXPECT_EQ(cursor.rowcount(), 2) << "not the sum";
  EXPECT_THROW(cursor.execute("INSERT INTO t VALUES (1, 'a')"), IntegrityError);
  EXPECT_LE(cursor.rowcount(), 0) << "a statement that failed counted";
}

TEST_F(CursorTest, TakesOneStatementPerTextAndAsManyParametersAsPlaceholders) {
  const std::tuple<std::string, std::string, std::string_view> cases[] = {
      {"SELECT 1; -- c\n DELETE FROM t", "refused", "a second statement behind a comment"},
      {"SELECT 1;\n ;; /* c */ -- c", "1", "what follows is no statement"},
      {"; ;\n/* ; */ SELECT 1", "1", "what comes before is no statement"},
      {"\xef\xbb\xbf", "", "a byte order mark alone"},
      {"SELECT 1\0; DELETE FROM t"s, "refused", "SQLite would not see what follows the NUL byte"},
  };
  for (const auto& [sql, rows, why] : cases) {
    try {
      EXPECT_EQ(dump(connection, sql), rows) << why;
    } catch (const ProgrammingError& error) {
      EXPECT_EQ(rows, "refused") << why << ": " << error.what();
    }
  }
  for (const Params& params : {Params{}, Params{1}, Params{1, "x", 3}})
    EXPECT_THROW(connection.execute("INSERT INTO t VALUES (?, ?)", params), ProgrammingError);
  EXPECT_EQ(dump(connection, "SELECT count(*) FROM t"), "3") << "what was refused ran";
}

TEST_F(CursorTest, ErrorsHaveSqlitesMessageAndCodeAndLeaveNoStatementOpen) {
  static constexpr std::pair<const char*, const char*> CASES[] = {
      {"SELECT * FROM missing", "OperationalError 1 no such table: missing"},
      {"INSERT INTO t VALUES (1, 'x')", "IntegrityError 1555 UNIQUE constraint failed: t.id"},
      {"INSERT INTO t VALUES ('x', 'x')", "IntegrityError 20 datatype mismatch"},
      {"INSERT INTO t VALUES (9, zeroblob(2000000000))", "Error 18 string or blob too big"},
      {"SELECT 1 UNION ALL SELECT abs(-9223372036854775808)",
       "OperationalError 1 integer overflow"},
  };
  for (const auto& [sql, expected] : CASES) {
    Cursor cursor = connection.cursor();
    try {
      cursor.execute(sql);
      cursor.fetchall();
      ADD_FAILURE() << sql << " was accepted";
    } catch (const Error& error) {
      EXPECT_EQ(error_type_name(error) + " " + std::to_string(error.code()) + " " + error.what(),
                expected);
    }
    EXPECT_NO_THROW(connection.execute("VACUUM")) << "a statement was left open after " << sql;
  }
}

TEST_F(CursorTest, AWriteWithRowsIsCommittedWhenExecuteReturns) {
  Cursor cursor = connection.execute("INSERT INTO t VALUES (8, 'h'), (16, 'p') RETURNING id, name");
  EXPECT_NO_THROW(other.execute("INSERT INTO t VALUES (32, 'x')"))
      << "the write lock was kept for the sake of unread rows";
  EXPECT_EQ((*cursor.fetchone())["name"].as_text(), "h");
  EXPECT_EQ(cursor.fetchall().size(), 1U);
}

TEST_F(CursorTest, ARefusalNamesTheStatementThatIsHeld) {
  connection.execute("ATTACH ':memory:' AS stg");
  connection.execute("CREATE TABLE stg.u AS SELECT 1");
  const auto refused_with = [&](const char* sql, const std::string& text) {
    EXPECT_THAT([&] { naming_held_statement(connection, [&] { connection.execute(sql); }); },
                ThrowsMessage<OperationalError>(text));
  };
  const Cursor cursor = connection.execute("SELECT * FROM t, u");
  refused_with("DROP TABLE t", "database table is locked; a cursor holds SELECT * FROM t, u");
  refused_with("DETACH stg", "database stg is locked; a cursor holds SELECT * FROM t, u");
  other.execute("BEGIN IMMEDIATE");
  refused_with("DELETE FROM t", "database is locked");  // by another connection
  other.execute("DELETE FROM t");
  other.execute("COMMIT");
  refused_with("DELETE FROM t", "database is locked; a cursor holds SELECT * FROM t, u");
}

TEST_F(CursorTest, CursorsWithTheSameTextShareNeitherRowsNorParameters) {
  static constexpr std::string_view SQL = "SELECT ?, id FROM t ORDER BY id";
  Cursor first = connection.execute(SQL, {"first"});
  EXPECT_EQ((*first.fetchone())[1].as_integer(), 1);
  Cursor second = connection.execute(SQL, {"second"});
  EXPECT_EQ((*second.fetchone())[0].as_text(), "second");
  EXPECT_EQ((*first.fetchone())[1].as_integer(), 2) << "another cursor's run began anew";
  // Rows are read as they are fetched: these have no end.
  second.execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n");
  EXPECT_EQ((*second.fetchone())[0].as_integer(), 1);
  Cursor third = connection.execute("SELECT 'replaced'");
  third = std::move(first);
  EXPECT_EQ((*third.fetchone())[0].as_text(), "first");
  EXPECT_THROW(first.fetchone(), ProgrammingError);  // NOLINT(bugprone-use-after-move): the point
}

TEST_F(CursorTest, AStatementKeptPreparedFollowsTheSchema) {
  static constexpr std::string_view SQL = "SELECT * FROM t WHERE id = 1";
  const auto row = [&] { return connection.execute(SQL).fetchone().value(); };
  EXPECT_EQ(row().size(), 2U);
  connection.execute("ALTER TABLE t ADD COLUMN size DEFAULT 7");
  EXPECT_EQ(row()["size"].as_integer(), 7);
  other.execute("ALTER TABLE t RENAME COLUMN name TO title");
  EXPECT_EQ(row().column_name(1), "title") << "the name of an earlier preparation was shown";
}

TEST_F(CursorTest, ManyTextsPassThroughTheCacheUnharmed) {
  for (int round = 0; round < 2; ++round)
    for (std::size_t i = 0; i < 2 * StatementCache::CAPACITY; ++i)
      ASSERT_EQ(dump(connection, "SELECT " + std::to_string(i)), std::to_string(i));
  int statements = 0;
  for (sqlite3_stmt* at = nullptr; (at = sqlite3_next_stmt(connection.handle(), at)) != nullptr;)
    ++statements;
  EXPECT_LE(statements, 64) << "the cache has no bound";
}

TEST_F(CursorTest, ThreadsThatShareAConnectionGetTheirOwnCountsAndMessages) {
  const auto work = [&](int thread) {
    const std::string name = "missing_" + std::to_string(thread);
    Cursor cursor = connection.cursor();
    for (int i = 0; i < 200; ++i) {
      cursor.execute("UPDATE t SET name = name WHERE id <= ?", {thread});
      ASSERT_EQ(cursor.rowcount(), thread);
      ASSERT_THAT([&] { cursor.execute("SELECT * FROM " + name); },
                  ::testing::ThrowsMessage<OperationalError>("no such table: " + name));
    }
  };
  const auto one = std::async(std::launch::async, work, 1);
  work(2);
}

}  // namespace
}  // namespace veldra
