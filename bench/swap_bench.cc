// Replacing the whole index: how long it takes, what memory it needs, what queries feel of it.
#include <malloc.h>

#include <array>
#include <atomic>
#include <fstream>
#include <memory>
#include <optional>
#include <thread>

#include "lookups.h"
#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// About 110 MB with their text.
constexpr Size LARGE = {.files = 5000, .symbols = 250'000, .edges = 750'000, .chunks = 20'000};
constexpr Size MANY_SYMBOLS = {.files = 5000, .symbols = 1'000'000};

/// The statements of a swap as they read, on a connection with the pragmas of the layer's writer.
void bare_swap(BareConnection& bare, const std::string& staging) {
  static constexpr std::array<const char*, 6> CLEARING = {
      "edges", "external_imports", "symbols", "files", "components", "index_errors"};
  struct Copy {
    std::string_view table, columns;
  };
  static constexpr std::array<Copy, 7> FILLING = {{
      {"components", "id, name, path"},
      {"files", "id, path, language, hash, size, component_id"},
      {"symbols", "id, file_id, name, fqn, kind, start_line, end_line, parent_id"},
      {"edges", "id, source_id, target_id, kind, line"},
      {"external_imports", "id, file_id, module, line"},
      {"index_errors", "id, file_path, error_type, message, line"},
      {"code_chunks", "rowid, text, start_line, end_line, exact"},
  }};
  sqlite3_stmt* const ddl =
      bare.prepare("SELECT sql FROM sqlite_master WHERE name = 'code_chunks'");
  bare.check(sqlite3_step(ddl), SQLITE_ROW);
  const std::string chunks(reinterpret_cast<const char*>(sqlite3_column_text(ddl, 0)));
  sqlite3_reset(ddl);

  bare.run(("ATTACH DATABASE '" + staging + "' AS stg").c_str());
  bare.run("BEGIN");
  bare.run("DROP TABLE code_chunks");
  bare.run(chunks.c_str());
  for (const char* const table : CLEARING) bare.run(("DELETE FROM " + std::string(table)).c_str());
  for (const auto& [table, columns] : FILLING) {
    std::string copy("INSERT INTO ");
    copy.append(table).append(" (").append(columns).append(") SELECT ").append(columns);
    copy.append(" FROM stg.").append(table);
    bare.run(copy.c_str());
  }
  bare.run("PRAGMA user_version=1");
  bare.run("COMMIT");
  bare.run("DETACH DATABASE stg");
}

/// A line of /proc/self/status, in MiB.
double memory(std::string_view key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key)) return std::stod(line.substr(key.size() + 1)) / 1024;
  }
  return 0;
}

/// The most memory, in MiB, that `work` needs beyond what the process has before it.
template <typename Work>
double peak_memory(Work work) {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;  // the peak begins anew
  const double before = memory("VmRSS:");
  work();
  return memory("VmHWM:") - before;
}

void swap_index(benchmark::State& state) {
  const TempDirectory directory;
  const fs::path full = directory / "full.db";
  make_index(full, LARGE);
  const fs::path staging = copy_index(full, directory / "staging.db");

  std::optional<BareConnection> bare;
  std::optional<Database> db;
  const auto open_db = [&] {
    if (db) db->close();
    db.emplace(copy_index(full, directory / "veldra.db")).connect();
  };
  open_db();
  const double peak = peak_memory([&] { db->swap_index_from(staging); });
  compare(state, 1, 0.5,
          {.bare = {.run = [&] { bare_swap(*bare, staging.string()); },
                    .before =
                        [&] {
                          bare.reset();
                          bare.emplace(copy_index(full, directory / "bare.db"));
                        }},
           .veldra = {.run = [&] { db->swap_index_from(staging); }, .before = open_db}});
  report(state, "file_mib", {static_cast<double>(fs::file_size(full)) / 1048576});
  report(state, "peak_mib", {peak});
  db->close();
}

/// Queries one symbol after the other and takes the time of each until told to stop.
class Querying {
 public:
  Querying(Lookup& lookup, std::int64_t symbols)
      : _thread([this, &lookup, symbols](const std::stop_token& stop) {
          std::int64_t number = 0;
          for (Clock::time_point start = Clock::now(); !stop.stop_requested();) {
            number = (number + 61'643) % symbols;
            lookup.by_key(number + 1);
            const Clock::time_point done = Clock::now();
            _latencies.push_back(std::chrono::duration<double>(done - start).count());
            start = done;
          }
        }) {}

  std::vector<double> stop() {
    _thread.request_stop();
    _thread.join();
    return std::move(_latencies);
  }

 private:
  std::vector<double> _latencies;
  std::jthread _thread;
};

/// A thread queries an idle file for a second, then while the file is swapped.
void queries_beside_a_swap(benchmark::State& state) {
  const TempDirectory directory;
  const fs::path path = directory / "index.db";
  make_index(path, MANY_SYMBOLS);
  const fs::path staging = copy_index(path, directory / "staging.db");
  Database db(path);
  db.connect();
  const std::unique_ptr<Lookup> lookup = veldra_lookup(db);

  struct Percentile {
    const char* name;
    double share;
  };
  static constexpr std::array<Percentile, 5> PERCENTILES = {
      {{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"p999", 0.999}, {"max", 1}}};
  std::array<std::vector<double>, PERCENTILES.size()> idle, beside;
  std::vector<double> ratios;
  for ([[maybe_unused]] auto _ : state) {
    Querying while_idle(*lookup, MANY_SYMBOLS.symbols);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const std::vector<double> quiet = while_idle.stop();

    Querying while_swapping(*lookup, MANY_SYMBOLS.symbols);
    const Clock::time_point start = Clock::now();
    db.swap_index_from(staging);
    state.SetIterationTime(seconds_since(start));
    const std::vector<double> busy = while_swapping.stop();

    for (std::size_t i = 0; i < PERCENTILES.size(); ++i) {
      idle[i].push_back(quantile(quiet, PERCENTILES[i].share));
      beside[i].push_back(quantile(busy, PERCENTILES[i].share));
    }
    ratios.push_back(quantile(busy, 0.99) / quantile(quiet, 0.99));
  }
  state.counters["limit"] = 2;
  for (std::size_t i = 0; i < PERCENTILES.size(); ++i) {
    report(state, std::string("idle_") + PERCENTILES[i].name, {quantile(idle[i], 0.5)});
    report(state, std::string("beside_") + PERCENTILES[i].name, {quantile(beside[i], 0.5)});
  }
  report(state, "ratio_p99", ratios);
  db.close();
}

BENCHMARK(swap_index)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(queries_beside_a_swap)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace veldra::bench
