// Writes: many rows in one transaction, and single ones that are each committed on their own.
#include <SQLiteCpp/SQLiteCpp.h>

#include <memory>
#include <optional>

#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

constexpr const char* INSERT =
    "INSERT INTO symbols (id, file_id, name, kind, start_line, end_line) VALUES (?, ?, ?, ?, ?, ?)";
constexpr const char* UPDATE = "UPDATE files SET hash = ? WHERE id = ?";

constexpr std::int64_t FILES = SHARED.files;

/// What the rows to insert are before they are bound: the same values in each way's own form.
struct Rows {
  std::vector<Symbol> symbols;
  ParamsList params;

  explicit Rows(std::int64_t count) {
    for (std::int64_t number = 1; number <= count; ++number) {
      symbols.push_back(symbol(number));
      const Symbol& last = symbols.back();
      params.push_back(
          {last.id, last.file_id, last.name, last.kind, last.start_line, last.end_line});
    }
  }
};

/// `range` rows with their index, in one transaction, into a file that has none yet.
void executemany(benchmark::State& state) {
  const TempDirectory directory;
  const std::filesystem::path empty = directory / "empty.db";
  make_index(empty, {.files = FILES, .symbols = 0});
  const auto fresh = [&](const char* name) { return copy_index(empty, directory / name); };
  const Rows rows(state.range(0));

  std::optional<BareConnection> bare;
  sqlite3_stmt* insert = nullptr;
  std::optional<Database> db;
  std::optional<SQLite::Database> sqlitecpp;
  compare(state, state.range(0), 1.10,
          {.bare = {.run =
                        [&] {
                          bare->run("BEGIN");
                          for (const Symbol& row : rows.symbols) {
                            bind_symbol(insert, row);
                            bare->check(sqlite3_step(insert), SQLITE_DONE);
                            sqlite3_reset(insert);
                          }
                          bare->run("COMMIT");
                        },
                    .before =
                        [&] {
                          bare.reset();
                          insert = bare.emplace(fresh("bare.db")).prepare(INSERT);
                        }},
           .veldra = {.run =
                          [&] {
                            db->transaction(
                                [&](Cursor& cursor) { cursor.executemany(INSERT, rows.params); });
                          },
                      .before =
                          [&] {
                            if (db) db->close();
                            db.emplace(fresh("veldra.db")).connect();
                          }},
           .sqlitecpp = {.run =
                             [&] {
                               SQLite::Transaction transaction(*sqlitecpp);
                               SQLite::Statement statement(*sqlitecpp, INSERT);
                               for (const Symbol& row : rows.symbols) {
                                 statement.bind(1, row.id);
                                 statement.bind(2, row.file_id);
                                 statement.bind(3, row.name);
                                 statement.bind(4, row.kind);
                                 statement.bind(5, row.start_line);
                                 statement.bind(6, row.end_line);
                                 statement.exec();
                                 statement.reset();
                               }
                               transaction.commit();
                             },
                         .before =
                             [&] {
                               sqlitecpp.reset();
                               sqlitecpp.emplace(fresh("sqlitecpp.db").string(),
                                                 SQLite::OPEN_READWRITE, 5000);
                               sqlitecpp->exec("PRAGMA foreign_keys=ON");
                               sqlitecpp->exec("PRAGMA synchronous=NORMAL");
                             }}});
}

/// One row changed by its key, each change committed by itself.
void autocommit_write(benchmark::State& state) {
  // As many as fill the write-ahead log once: every run pays for about one checkpoint.
  static constexpr std::int64_t WRITES = 1000;
  const TempDirectory directory;
  const auto made = [&](const char* name) {
    std::filesystem::path path = directory / name;
    make_index(path, {.files = FILES, .symbols = 0});
    return path;
  };
  const auto each_file = [](auto write) {
    return [write, hash = std::int64_t{0}]() mutable {
      for (std::int64_t i = 0; i < WRITES; ++i) {
        ++hash;
        write(std::to_string(hash), hash % FILES + 1);
      }
    };
  };

  BareConnection bare(made("bare.db"));
  sqlite3_stmt* const update = bare.prepare(UPDATE);
  Database db(made("veldra.db"));
  db.connect();
  SQLite::Database sqlitecpp(made("sqlitecpp.db").string(), SQLite::OPEN_READWRITE, 5000);
  sqlitecpp.exec("PRAGMA foreign_keys=ON");
  sqlitecpp.exec("PRAGMA synchronous=NORMAL");
  compare(state, WRITES, 1.10,
          {.bare = {each_file([&](const std::string& hash, std::int64_t id) {
             bind_text(update, 1, hash);
             sqlite3_bind_int64(update, 2, id);
             bare.check(sqlite3_step(update), SQLITE_DONE);
             sqlite3_reset(update);
           })},
           .veldra = {each_file([&](const std::string& hash, std::int64_t id) {
             db.execute(UPDATE, {hash, id});
           })},
           .sqlitecpp = {each_file([&](const std::string& hash, std::int64_t id) {
             SQLite::Statement statement(sqlitecpp, UPDATE);
             statement.bind(1, hash);
             statement.bind(2, id);
             statement.exec();
           })}});
}

BENCHMARK(executemany)->Arg(100'000)->Iterations(15)->UseManualTime();
BENCHMARK(autocommit_write)->Iterations(40)->UseManualTime();

}  // namespace
}  // namespace veldra::bench
