// Queries on one state, rows one by one, and what limits cost and keep.
#include <malloc.h>

#include <algorithm>
#include <chrono>

#include "lookups.h"
#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* BY_KEY =
    "SELECT id, file_id, name, kind, start_line, end_line FROM symbols WHERE id = ?";
constexpr const char* MANY =
    "SELECT id, file_id, name, kind, start_line, end_line FROM symbols LIMIT ?";
constexpr const char* ENDLESS =
    "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM n";

double allocated() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

template <typename LookUp>
void each_key(LookUp look_up) {
  for (std::int64_t i = 0; i < 1000; ++i) look_up(i * 617 % 1000 + 1);
}

/// Point queries in one snapshot, to bare statements that each begin their own read transaction.
void snapshot_queries(benchmark::State& state) {
  Database db(shared_index());
  db.connect();
  const std::unique_ptr<Lookup> bare = bare_lookup(shared_index(), SQLITE_OPEN_READWRITE);
  compare(state, 1000, 0.55,
          {.bare = {[&] { each_key([&](std::int64_t key) { bare->by_key(key); }); }},
           .veldra = {[&] {
             db.snapshot([](Snapshot& snapshot) {
               each_key([&](std::int64_t key) { touch_symbol(*snapshot.fetchone(BY_KEY, {key})); });
             });
           }}});
}

void fetcheach(benchmark::State& state) {
  Database db(shared_index());
  db.connect();
  BareConnection bare(shared_index());
  sqlite3_stmt* const statement = bare.prepare(MANY);
  const std::int64_t rows = state.range(0);
  compare(state, rows, 1.15,
          {.bare = {[&] {
             sqlite3_bind_int64(statement, 1, rows);
             while (sqlite3_step(statement) == SQLITE_ROW) touch_symbol(statement);
             sqlite3_reset(statement);
           }},
           .veldra = {[&] {
             db.fetcheach(MANY, {rows}, [](const Row& row) {
               touch_symbol(row);
               return true;
             });
           }}});
  // What the allocator has given out while the last row is shown, beyond that at the first.
  double first = 0, last = 0;
  db.fetcheach(MANY, {rows}, [&](const Row& row) {
    const std::int64_t number = row[0].as_integer();
    if (number == 1) first = allocated();
    if (number == rows) last = allocated();
    return true;
  });
  report(state, "grown_bytes", {last - first});
}

/// A query with a timeout of an hour, to the same query without any.
void hour_of_patience(benchmark::State& state) {
  Database db(shared_index());
  db.connect();
  compare(state, 1000, 1.05,
          {.bare = {[&] {
             each_key([&](std::int64_t key) { touch_symbol(*db.fetchone(BY_KEY, {key})); });
           }},
           .veldra = {[&] {
             const Limits limits = {.timeout = 1h, .stop = {}};
             each_key([&](std::int64_t key) { touch_symbol(*db.fetchone(BY_KEY, {key}, limits)); });
           }}});
}

/// How long after its limit a query that would never end has ended.
void runaway_query(benchmark::State& state) {
  Database db(shared_index());
  db.connect();
  std::vector<double> late;
  for (auto _ : state) {
    const Clock::time_point limit = Clock::now() + 20ms;
    try {
      db.fetchone(ENDLESS, {}, {.timeout = 20ms, .stop = {}});
    } catch (const QueryInterrupted&) {
      late.push_back(std::chrono::duration<double>(Clock::now() - limit).count());
    }
    state.SetIterationTime(late.back());
  }
  report(state, "latest", {*std::ranges::max_element(late)});
  report(state, "late", std::move(late));
}

BENCHMARK(snapshot_queries)->Iterations(300)->UseManualTime();
BENCHMARK(fetcheach)->Arg(100'000)->Iterations(30)->UseManualTime();
BENCHMARK(hour_of_patience)->Iterations(300)->UseManualTime();
BENCHMARK(runaway_query)->Iterations(100)->UseManualTime();

}  // namespace
}  // namespace veldra::bench
