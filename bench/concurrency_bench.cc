// Queries beside a thread that writes without pause, and of more threads than there are readers.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <iterator>
#include <memory>
#include <random>
#include <thread>

#include "lookups.h"
#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

constexpr Size SIZE = {.files = 2000, .symbols = 100'000};

using Clock = std::chrono::steady_clock;

/// One of the ways, with a lookup for each thread.
struct Readers {
  std::vector<std::unique_ptr<Lookup>> lookups;
  std::vector<double> medians, tails;  // of each turn
};

/// The seconds that each query took, of all threads together, within one turn.
std::vector<double> take_turn(Readers& readers, std::chrono::milliseconds length) {
  std::vector<std::vector<double>> latencies(readers.lookups.size());
  {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < latencies.size(); ++i) {
      threads.emplace_back([&, i] {
        std::int64_t number = static_cast<std::int64_t>(i) * 500;
        const Clock::time_point end = Clock::now() + length;
        for (Clock::time_point start = Clock::now(); start < end;) {
          number = (number + 617) % 1000;
          readers.lookups[i]->by_key(number + 1);
          const Clock::time_point done = Clock::now();
          latencies[i].push_back(std::chrono::duration<double>(done - start).count());
          start = done;
        }
      });
    }
  }
  std::vector<double> all;
  for (const std::vector<double>& thread : latencies)
    std::ranges::copy(thread, std::back_inserter(all));
  return all;
}

/// `range` threads query; each way has its turn in every iteration, the writer goes on through all.
void queries_beside_a_writer(benchmark::State& state) {
  const TempDirectory directory;
  const std::filesystem::path path = directory / "index.db";
  make_index(path, SIZE);
  Database db(path);
  db.connect();

  std::array<Readers, 3> ways;
  for (std::int64_t thread = 0; thread < state.range(0); ++thread) {
    ways[0].lookups.push_back(bare_lookup(path, SQLITE_OPEN_READONLY));
    ways[1].lookups.push_back(veldra_lookup(db));
    ways[2].lookups.push_back(sqlitecpp_lookup(path));
  }

  std::atomic<std::int64_t> writes = 0;
  std::vector<double> p50, p99;
  {
    const std::jthread writer([&](const std::stop_token& stop) {
      Params params(2);
      while (!stop.stop_requested()) {
        params[0] = ++writes;
        params[1] = writes % SIZE.symbols + 1;
        db.execute("UPDATE symbols SET end_line = ? WHERE id = ?", params);
      }
    });
    for (Readers& readers : ways) take_turn(readers, std::chrono::milliseconds(50));
    std::mt19937 random(1);
    for ([[maybe_unused]] auto _ : state) {
      std::array<Readers*, 3> order = {&ways[0], &ways[1], &ways[2]};
      std::ranges::shuffle(order, random);
      for (Readers* const readers : order) {
        const std::vector<double> latencies = take_turn(*readers, std::chrono::milliseconds(100));
        readers->medians.push_back(quantile(latencies, 0.5));
        readers->tails.push_back(quantile(latencies, 0.99));
      }
      p50.push_back(ways[1].medians.back() / ways[0].medians.back());
      p99.push_back(ways[1].tails.back() / ways[0].tails.back());
      state.SetIterationTime(0.1);
    }
  }
  state.counters["limit"] = 1.25;
  state.counters["writes"] = static_cast<double>(writes.load());
  static constexpr std::array<const char*, 3> NAMES = {"bare", "veldra", "sqlitecpp"};
  for (std::size_t i = 0; i < ways.size(); ++i) {
    report(state, std::string(NAMES[i]) + "_p50", {quantile(ways[i].medians, 0.5)});
    report(state, std::string(NAMES[i]) + "_p99", {quantile(ways[i].tails, 0.5)});
  }
  report(state, "ratio_p50", p50);
  report(state, "ratio_p99", p99);
}

/// Twelve threads query through six read connections while a transaction holds the writer: a
/// thread that is passed over by the others goes to the writer in the end, and waits for it.
void more_threads_than_readers(benchmark::State& state) {
  const TempDirectory directory;
  const std::filesystem::path path = directory / "index.db";
  make_index(path, SIZE);
  Database db(path);
  db.connect();
  Readers readers;
  for (int thread = 0; thread < 12; ++thread) readers.lookups.push_back(veldra_lookup(db));
  std::vector<double> longest;
  db.transaction([&](Cursor&) {
    for ([[maybe_unused]] auto _ : state) {
      longest.push_back(std::ranges::max(take_turn(readers, std::chrono::milliseconds(500))));
      state.SetIterationTime(0.5);
    }
  });
  state.counters["limit"] = 0.1;
  state.counters["longest_wait"] = std::ranges::max(longest);  // of all turns: none may be longer
}

BENCHMARK(queries_beside_a_writer)->Arg(1)->Arg(2)->Iterations(40)->UseManualTime();
BENCHMARK(more_threads_than_readers)->Iterations(20)->UseManualTime();

}  // namespace
}  // namespace veldra::bench
