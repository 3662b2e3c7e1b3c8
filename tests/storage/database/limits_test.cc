// A limit reaches all that a query waits for, hits nobody else, and nothing of it stays behind.
#include <sqlite3.h>

#include <thread>

#include "support/database_test.h"
#include "support/environment.h"

namespace veldra {
namespace {

const std::string ENDLESS =
    "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n";
const Limits SOON = {.timeout = 30ms, .stop = {}};
bool any_row(const Row&) {
  return true;
}

using Ask = std::function<void(Database&, const Limits&)>;

/// The ways to ask for what `sql` gives.
std::vector<Ask> every_way_to_ask(const std::string& sql) {
  return {[sql](Database& db, const Limits& limits) { db.fetchone(sql, {}, limits); },
          [sql](Database& db, const Limits& limits) { db.fetchall(sql, {}, limits); },
          [sql](Database& db, const Limits& limits) { db.fetcheach(sql, {}, any_row, limits); },
          [sql](Database& db, const Limits& limits) {
            db.snapshot([&](Snapshot& state) { state.fetchall(sql); }, limits);
          }};
}

template <typename Work>
void expect_interrupted(Work work, std::string_view where) {
  try {
    work();
    ADD_FAILURE() << "not interrupted: " << where;
  } catch (const QueryInterrupted& error) {
    EXPECT_EQ(std::string(error.what()) + std::to_string(error.code()), "interrupted9") << where;
  }
}

TEST(LimitsTest, EndARunningQueryOnEitherConnection) {
  const EnvironmentVariable one_reader("VELDRA_DB_READERS", "1");
  TempDatabase db;
  db->connection()->set_busy_timeout(1234ms);
  for (const Ask& ask : every_way_to_ask(ENDLESS)) {
    std::stop_source typing;
    auto asked = std::async(std::launch::async, ask, std::ref(*db), Limits{{}, typing.get_token()});
    EXPECT_FALSE(finished(asked, 20ms));
    typing.request_stop();
    ASSERT_TRUE(finished(asked));
    expect_interrupted([&] { asked.get(); }, "on a reader, by a stop");
    db->transaction([&](Cursor& cursor) {
      cursor.execute("INSERT INTO components (name, path) VALUES ('a', '')");
      expect_interrupted([&] { ask(*db, SOON); }, "on the writer, by the time");
      EXPECT_EQ(dump(*db, "SELECT count(*) FROM components"), "1") << "a query took it along";
    });
    db->execute("DELETE FROM components");
  }
  // A handler that stayed would end these with the limit that is over.
  static constexpr const char* LONG =
      "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 100000) "
      "SELECT count(*) FROM n";
  EXPECT_EQ(dump(*db, LONG), "100000");
  EXPECT_EQ(dump(*db->connection(), LONG), "100000");
  EXPECT_EQ(dump(*db->connection(), "PRAGMA busy_timeout"), "1234");
  for (const Ask& ask : every_way_to_ask("SELECT 1"))
    ask(*db, {.timeout = std::chrono::milliseconds::max(), .stop = {}});
}

TEST(LimitsTest, EndEveryWait) {
  const EnvironmentVariable one_reader("VELDRA_DB_READERS", "1");
  TempDatabase db;
  const std::string write = "INSERT INTO components (name, path) VALUES ('a', '') RETURNING id";
  // For the read connection, which this thread keeps.
  db->fetcheach("SELECT 1", {}, [&](const Row&) {
    for (const Ask& ask : every_way_to_ask("SELECT 1")) {
      auto asked = std::async(std::launch::async, [&] {
        expect_interrupted([&] { ask(*db, SOON); }, "waiting for a reader");
      });
      EXPECT_TRUE(finished(asked));
    }
    return true;
  });
  // For the connection lock, in its turn: who waits behind is served.
  db->transaction([&](Cursor&) {
    std::vector<std::future<void>> asked;
    for (const std::string& sql : {write, std::string("PRAGMA page_count")})
      asked.push_back(std::async(std::launch::async, [&, sql] {
        expect_interrupted([&] { every_way_to_ask(sql)[2](*db, SOON); }, "waiting for the lock");
      }));
    for (auto& each : asked) EXPECT_TRUE(finished(each));
  });
  // For the file, which another connection has locked.
  Connection other(db->db_path);
  other.execute("BEGIN IMMEDIATE");
  expect_interrupted([&] { db->fetchone(write, {}, SOON); }, "waiting for the file");
  std::stop_source typing;
  typing.request_stop();
  for (const Limits& over : {Limits{0ms, {}}, Limits{-1ms, {}}, Limits{{}, typing.get_token()}})
    for (const Ask& ask : every_way_to_ask("no SQL"))
      expect_interrupted([&] { ask(*db, over); }, "over before it began");
  db->connection()->set_busy_timeout(40ms);
  EXPECT_THAT([&] { db->fetchone(write, {}, {.timeout = 1h, .stop = {}}); },
              ThrowsMessage<OperationalError>("database is locked"));
  EXPECT_EQ(dump(*db->connection(), "PRAGMA busy_timeout"), "40");
  db->close();
  for (const Ask& ask : every_way_to_ask("SELECT 1"))
    EXPECT_THROW(ask(*db, {.timeout = 0ms, .stop = {}}), RuntimeError);
}

TEST(LimitsTest, OfFiftyQueriesTheSecondHalfAloneIsHit) {
  const EnvironmentVariable few_readers("VELDRA_DB_READERS", "3");
  TempDatabase db;
  std::vector<std::future<void>> asked;
  for (std::size_t i = 0; i < 50; ++i) {
    asked.push_back(std::async(std::launch::async, [&, i] {
      const Ask ask = every_way_to_ask(i % 2 == 0 ? "SELECT 1" : ENDLESS)[i % 4];
      if (i % 2 == 0)
        EXPECT_NO_THROW(ask(*db, {.timeout = 60s, .stop = {}}));
      else
        expect_interrupted([&] { ask(*db, {.timeout = 5ms, .stop = {}}); }, "endless");
      EXPECT_NO_THROW(db->fetchall("SELECT * FROM files"));
      EXPECT_NO_THROW(db->execute("DELETE FROM edges"));
    }));
  }
  for (auto& each : asked) ASSERT_TRUE(finished(each));
}

TEST(LimitsTest, AnInterruptedWriteTakesItsTransactionAlongAndNothingFollowsInAutocommit) {
  TempDatabase db;
  const std::string write = "INSERT INTO components (name, path) SELECT 'b', (" + ENDLESS + ")";
  const auto scope = [&](Cursor& cursor) {
    cursor.execute("INSERT INTO components (name, path) VALUES ('a', '')");
    expect_interrupted([&] { db->fetchone(write, {}, SOON); }, "a write in a transaction");
    const Ask refused[] = {[&](Database& it, const Limits&) { it.fetchone("SELECT 1"); },
                           [&](Database& it, const Limits&) { it.execute("DELETE FROM files"); },
                           [&](Database& it, const Limits&) { it.snapshot([](Snapshot&) {}); },
                           [&](Database& it, const Limits&) {
                             it.transaction([](Cursor& c) { c.execute("SELECT 1"); });
                           },
                           [&](Database&, const Limits&) { cursor.execute("DELETE FROM files"); }};
    for (const Ask& each : refused) EXPECT_THROW(each(*db, {}), OperationalError);
  };
  EXPECT_THROW(db->transaction(scope), OperationalError) << "the scope ended well";
  expect_interrupted([&] { db->fetchone(write, {}, SOON); }, "a write by itself");
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM components"), "0");
  db->execute("INSERT INTO components (name, path) VALUES ('c', '')");
  // SQLite asks a last time when a write by itself has been committed: it is then done.
  std::stop_source typing;
  const auto stop_if = [](sqlite3_context* context, int, sqlite3_value** given) {
    if (sqlite3_value_int(given[0]) != 0)
      static_cast<std::stop_source*>(sqlite3_user_data(context))->request_stop();
    sqlite3_result_int(context, 0);
  };
  sqlite3_create_function(db->connection()->handle(), "stop_if", 1, SQLITE_UTF8, &typing, stop_if,
                          nullptr, nullptr);
  int interrupted = 0;
  for (int rows = 300; rows < 420; ++rows) {  // each ends elsewhere between two askings
    typing = std::stop_source();
    db->execute("DELETE FROM index_errors");
    try {
      db->fetchone(
          "INSERT INTO index_errors (file_path, error_type) WITH RECURSIVE n (i) AS (SELECT 1 "
          "UNION "
          "ALL SELECT i + 1 FROM n WHERE i < ?1) SELECT i, stop_if(i = ?1) FROM n",
          {rows}, {.timeout = {}, .stop = typing.get_token()});
      EXPECT_EQ(dump(*db, "SELECT count(*) FROM index_errors"), std::to_string(rows));
    } catch (const QueryInterrupted&) {
      EXPECT_EQ(dump(*db, "SELECT count(*) FROM index_errors"), "0");
      ++interrupted;
    }
  }
  EXPECT_TRUE(interrupted > 0 && interrupted < 120) << interrupted;
}

TEST(FetchEachTest, ShowsRowsUntilItIsToldToStopAndKeepsTheErrorsOfItsVisitor) {
  const EnvironmentVariable two_readers("VELDRA_DB_READERS", "2");
  TempDatabase db;
  db->execute("INSERT INTO components (name, path) VALUES ('a', 1), ('b', 2), ('c', 3)");
  static constexpr const char* NAMES = "SELECT name FROM components WHERE path < ? ORDER BY 1";
  const auto names_until = [&](std::string_view last) {
    std::string names;
    db->fetcheach(NAMES, {"9"}, [&](const Row& row) {
      names += row[0].as_text();
      return row[0].as_text() != last;
    });
    return names;
  };
  const auto expect_the_same_on = [&](const std::string& connection) {
    EXPECT_EQ(names_until("b") + names_until(""), "ababc") << connection;
    // Errors that would send the query to the writer, if they came before a row.
    EXPECT_THROW(
        db->fetcheach(NAMES, {"9"}, [](const Row&) -> bool { throw ReaderUnavailable(""); }),
        ReaderUnavailable);
    int shown = 0;
    EXPECT_THROW(db->fetcheach(NAMES, {"9"},
                               [&](const Row&) -> bool {
                                 ++shown;
                                 throw OperationalError("attempt to write a readonly database", 8);
                               }),
                 OperationalError);
    EXPECT_EQ(shown, 1) << "asked again";
    std::string seen;
    db->fetcheach(NAMES, {"9"}, [&](const Row& row) {
      db->fetcheach("SELECT count(*) FROM components", {}, [&](const Row& inner) {
        seen +=
            std::to_string(inner[0].as_integer()) + dump(*db, "SELECT 'x'");  // no reader is left
        return true;
      });
      db->execute("UPDATE components SET path = 5 WHERE name = ?", {row[0].as_text()});
      for (const auto& refused :
           {+[](Database& it) { it.close(); }, +[](Database& it) { it.connect(); }})
        EXPECT_THROW(refused(*db), ProgrammingError);
      return true;
    });
    EXPECT_EQ(seen, "3x3x3x") << connection;
    int written = 0;
    db->fetcheach(
        "INSERT INTO files (path, language, hash) VALUES (?, '', ''), ('z', '', '') RETURNING 1",
        {"y"}, [&](const Row&) { return ++written == 0; });
    EXPECT_EQ(dump(*db, "SELECT count(*) FROM files"), "2") << "not run to its end";
    db->execute("DELETE FROM files");
  };
  expect_the_same_on("a reader");
  db->transaction([&](Cursor&) { expect_the_same_on("the writer"); });
  int shown = 0;
  expect_interrupted(
      [&] {
        db->fetcheach(NAMES, {"9"},
                      [&](const Row&) {
                        std::this_thread::sleep_for(20ms);
                        return ++shown > 0;
                      },
                      {.timeout = 10ms, .stop = {}});
      },
      "between two rows");
  EXPECT_EQ(shown, 1);
}

}  // namespace
}  // namespace veldra
