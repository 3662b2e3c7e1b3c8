// Replacing the whole index: how long it takes, what memory it needs, what queries feel of it.
#include <malloc.h>
#include <ctime>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <functional>
#include <iterator>
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
  bare.run("BEGIN IMMEDIATE");  // another writer may come between a read and a write
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
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(key)) return std::stod(line.substr(key.size() + 1)) / 1024;
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

/// A writer of another connection, which commits one small change after the other; SQLite keeps the
/// connections of one process from each other as it does those of two.
class OtherWriter {
 public:
  explicit OtherWriter(const fs::path& path)
      : _thread([this, path](const std::stop_token& stop) {
          BareConnection other(path);
          sqlite3_busy_timeout(other.get(), 60'000);
          while (!stop.stop_requested()) {
            const Clock::time_point start = Clock::now();
            other.run("INSERT OR REPLACE INTO schema_info (key, value) VALUES ('beat', '1')");
            _longest_wait = std::max(_longest_wait, seconds_since(start));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
          }
        }) {}

  void request_stop() { _thread.request_stop(); }

  /// In seconds; ends the writer.
  double longest_wait() {
    _thread.join();
    return _longest_wait;
  }

 private:
  double _longest_wait = 0;
  std::jthread _thread;
};

/// What a swap costs beside the time it takes.
class Costs {
 public:
  explicit Costs(fs::path index) : _index(std::move(index)) {}

  void prepare() {
    _end_last_run();
    _writer = std::make_unique<OtherWriter>(_index);
  }

  template <typename Work>
  void measure(Work work) {
    const double before = processor_seconds();
    work();
    _processor.push_back(processor_seconds() - before);
    _writer->request_stop();
  }

  std::vector<double> processor() { return {_processor.begin() + 1, _processor.end()}; }
  std::vector<double> waits() {
    _end_last_run();
    return {_waits.begin() + 1, _waits.end()};  // without the first run, which warms up
  }

 private:
  /// Of the calling thread.
  static double processor_seconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }

  void _end_last_run() {
    if (_writer) _waits.push_back(_writer->longest_wait());
    _writer.reset();
  }

  fs::path _index;
  std::unique_ptr<OtherWriter> _writer;
  std::vector<double> _processor, _waits;
};

std::vector<double> divided(const std::vector<double>& values, const std::vector<double>& by) {
  std::vector<double> ratios;
  std::ranges::transform(values, by, std::back_inserter(ratios), std::divides<>());
  return ratios;
}

/// A staging file that holds the rows and the text, but no index of either.
void strip(const fs::path& staging) {
  BareConnection bare(staging);
  sqlite3_exec(
      bare.get(),
      "PRAGMA foreign_keys = OFF; DROP INDEX files_by_component; DROP INDEX symbols_by_file;"
      "DROP INDEX edges_by_source; DROP INDEX edges_by_target; DROP INDEX symbols_by_name;"
      "DROP INDEX external_imports_by_file; DROP INDEX external_imports_by_module;"
      "DROP INDEX index_errors_by_file;"
      "CREATE TABLE text AS SELECT rowid AS id, * FROM code_chunks; DROP TABLE code_chunks;"
      "CREATE TABLE code_chunks (text, start_line, end_line, exact);"
      "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact)"
      " SELECT id, text, start_line, end_line, exact FROM text; DROP TABLE text; VACUUM",
      nullptr, nullptr, nullptr);
  bare.check(sqlite3_errcode(bare.get()));
}

void swap_index(benchmark::State& state, StagingTrust trust, bool whole, double limit) {
  const TempDirectory directory;
  const fs::path full = directory / "full.db";
  make_index(full, LARGE);
  const fs::path staging = copy_index(full, directory / "staging.db");
  if (!whole) strip(staging);

  std::optional<BareConnection> bare;
  std::optional<Database> db;
  Costs bare_costs(directory / "bare.db"), own_costs(directory / "veldra.db");
  const auto open_db = [&] {
    if (db) db->close();
    db.emplace(copy_index(full, directory / "veldra.db")).connect();
  };
  open_db();
  const double peak = peak_memory([&] { db->swap_index_from(staging, trust); });
  compare(
      state, 1, limit,
      {.bare = {.run = [&] { bare_costs.measure([&] { bare_swap(*bare, staging.string()); }); },
                .before =
                    [&] {
                      bare.reset();
                      bare.emplace(copy_index(full, directory / "bare.db"));
                      bare_costs.prepare();
                    }},
       .veldra = {.run = [&] { own_costs.measure([&] { db->swap_index_from(staging, trust); }); },
                  .before =
                      [&] {
                        open_db();
                        own_costs.prepare();
                      }}});
  const std::vector<double> bare_waits = bare_costs.waits(), own_waits = own_costs.waits();
  report(state, "ratio_cpu", divided(own_costs.processor(), bare_costs.processor()));
  report(state, "ratio_wait", divided(own_waits, bare_waits));
  report(state, "wait_bare", {quantile(bare_waits, 0.5)});
  report(state, "wait_veldra", {quantile(own_waits, 0.5)});
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

void measured_alike(benchmark::internal::Benchmark* swap) {
  swap->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);
}

BENCHMARK_CAPTURE(swap_index, vouched, StagingTrust::Vouched, true, 0.10)->Apply(measured_alike);
BENCHMARK_CAPTURE(swap_index, checked, StagingTrust::Checked, true, 0.20)->Apply(measured_alike);
BENCHMARK_CAPTURE(swap_index, stripped, StagingTrust::Vouched, false, 0.25)->Apply(measured_alike);
BENCHMARK(queries_beside_a_swap)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace veldra::bench
