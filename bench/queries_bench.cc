// Queries: by key, by name, many rows at once, full-text search.
#include <SQLiteCpp/SQLiteCpp.h>
#include <malloc.h>

#include <memory>

#include "lookups.h"
#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

constexpr const char* MANY =
    "SELECT id, file_id, name, kind, start_line, end_line FROM symbols LIMIT ?";
constexpr const char* SEARCH =
    "SELECT rowid, start_line, end_line FROM code_chunks WHERE code_chunks MATCH ? "
    "ORDER BY rank LIMIT 20";

/// The three ways' connections to the one file that is only read.
struct Connections {
  BareConnection bare{shared_index()};
  Database veldra{shared_index()};
  SQLite::Database sqlitecpp{shared_index().string(), SQLite::OPEN_READWRITE, 5000};

  Connections() { veldra.connect(); }
};

/// Looks `range` symbols up in turn, by the query that `look_up` makes of a symbol's number.
template <typename LookUp>
void fetchone(benchmark::State& state, LookUp look_up) {
  static constexpr std::int64_t QUERIES = 100;  // short rounds: few meet another process
  Database db(shared_index());
  db.connect();
  const auto way = [&](std::unique_ptr<Lookup> lookup) {
    const auto run = [&, number = std::int64_t{0},
                      lookup = std::shared_ptr(std::move(lookup))]() mutable {
      for (std::int64_t i = 0; i < QUERIES; ++i) {
        number = (number + 617) % state.range(0);  // shares no divisor with any range
        look_up(*lookup, number);
      }
    };
    return Way{run};
  };
  compare(state, QUERIES, 1.10,
          {.bare = way(bare_lookup(shared_index(), SQLITE_OPEN_READWRITE)),
           .veldra = way(veldra_lookup(db)),
           .sqlitecpp = way(sqlitecpp_lookup(shared_index()))});
}

void fetchone_by_key(benchmark::State& state) {
  fetchone(state, [](Lookup& lookup, std::int64_t number) { lookup.by_key(number + 1); });
}

void fetchone_by_name(benchmark::State& state) {
  std::vector<std::string> names;
  for (std::int64_t number = 1; number <= state.range(0); ++number)
    names.push_back(symbol(number).name);
  fetchone(state, [&](Lookup& lookup, std::int64_t number) {
    lookup.by_name(names[static_cast<std::size_t>(number)]);
  });
}

/// Bytes that the allocator has given out.
double allocated() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

/// `range` rows through `fetchall`, against a loop that only touches every column.
void fetchall(benchmark::State& state) {
  Connections connections;
  sqlite3_stmt* const statement = connections.bare.prepare(MANY);
  const std::int64_t rows = state.range(0);
  compare(state, rows, rows <= 1000 ? 1.25 : 1.40,
          {.bare = {[&] {
             sqlite3_bind_int64(statement, 1, rows);
             while (sqlite3_step(statement) == SQLITE_ROW) touch_symbol(statement);
             sqlite3_reset(statement);
           }},
           .veldra = {[&] {
             for (const Row& row : connections.veldra.fetchall(MANY, {rows})) touch_symbol(row);
           }},
           .sqlitecpp = {[&] {
             SQLite::Statement query(connections.sqlitecpp, MANY);
             query.bind(1, rows);
             std::vector<Symbol> symbols;
             while (query.executeStep()) symbols.push_back(read_symbol(query));
             benchmark::DoNotOptimize(symbols.data());
           }}});

  const double before = allocated();
  const std::vector<Row> held = connections.veldra.fetchall(MANY, {rows});
  report(state, "bytes_per_row", {(allocated() - before) / static_cast<double>(rows)});
}

void full_text_search(benchmark::State& state) {
  Connections connections;
  sqlite3_stmt* const statement = connections.bare.prepare(SEARCH);
  static constexpr std::int64_t QUERIES = 10;
  const auto each_text = [](auto query) {
    return [query] {
      for (std::int64_t i = 0; i < QUERIES; ++i)
        query("word_" + std::to_string(1000 + i * 977) + " OR word_" + std::to_string(50 + i));
    };
  };
  compare(state, QUERIES, 1.05,
          {.bare = {each_text([&](const std::string& text) {
             sqlite3_bind_text(statement, 1, text.data(), static_cast<int>(text.size()),
                               SQLITE_STATIC);
             std::int64_t sum = 0;
             while (sqlite3_step(statement) == SQLITE_ROW) {
               for (const int column : {0, 1, 2}) sum += sqlite3_column_int64(statement, column);
             }
             benchmark::DoNotOptimize(sum);
             sqlite3_reset(statement);
           })},
           .veldra = {each_text([&](const std::string& text) {
             std::int64_t sum = 0;
             for (const Row& row : connections.veldra.fetchall(SEARCH, {text})) {
               for (const std::size_t column : {0U, 1U, 2U}) sum += row[column].as_integer();
             }
             benchmark::DoNotOptimize(sum);
           })},
           .sqlitecpp = {each_text([&](const std::string& text) {
             SQLite::Statement query(connections.sqlitecpp, SEARCH);
             query.bind(1, text);
             std::int64_t sum = 0;
             while (query.executeStep()) {
               for (const int column : {0, 1, 2}) sum += query.getColumn(column).getInt64();
             }
             benchmark::DoNotOptimize(sum);
           })}});
}

/// A working set that the page cache holds, then the whole table.
void working_sets(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1000)->Arg(SHARED.symbols)->Iterations(1500)->UseManualTime();
}

BENCHMARK(fetchone_by_key)->Apply(working_sets);
BENCHMARK(fetchone_by_name)->Apply(working_sets);
BENCHMARK(fetchall)->Arg(1000)->Iterations(600)->UseManualTime();
BENCHMARK(fetchall)->Arg(100'000)->Iterations(30)->UseManualTime();
BENCHMARK(full_text_search)->Iterations(50)->UseManualTime();

}  // namespace
}  // namespace veldra::bench
