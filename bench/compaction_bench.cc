// Giving 10,000 free pages back to the file system, and what a writer beside it feels.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <thread>

#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// A file of 20,000 pages of 8 KiB, every other of which is free.
void make_half_free(const fs::path& path) {
  make_index(path, {.files = 2000, .symbols = 0});
  BareConnection bare(path);
  bare.run("CREATE TABLE pages (id INTEGER PRIMARY KEY, data BLOB)");
  bare.run(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 20000) "
      "INSERT INTO pages SELECT i, randomblob(8000) FROM n");
  bare.run("DELETE FROM pages WHERE id % 2");
  bare.run("PRAGMA wal_checkpoint(TRUNCATE)");
}

/// The pragmas of a compaction in a loop; returns how long the longest step took.
double bare_compaction(BareConnection& bare) {
  double longest = 0;
  while (bare.number("PRAGMA freelist_count") > 0) {
    const Clock::time_point start = Clock::now();
    bare.run("PRAGMA incremental_vacuum(1024)");
    longest = std::max(longest, seconds_since(start));
  }
  bare.run("PRAGMA wal_checkpoint(TRUNCATE)");
  return longest;
}

/// What is seen of a file while it is compacted: its size, and how long a write just waited.
struct Sample {
  double seconds;
  double file_mib;
  double wait;
};

std::vector<Sample> compact_beside_a_writer(Database& db) {
  std::vector<Sample> samples;
  const Clock::time_point start = Clock::now();
  const std::jthread writer([&](const std::stop_token& stop) {
    Params params(1);
    for (std::int64_t i = 0; !stop.stop_requested(); ++i) {
      params[0] = i;
      const Clock::time_point asked = Clock::now();
      db.execute("UPDATE files SET size = ? WHERE id = 1", params);
      const double wait = seconds_since(asked);
      samples.push_back(
          {seconds_since(start), static_cast<double>(fs::file_size(db.db_path)) / 1048576, wait});
    }
  });
  db.compact();
  return samples;
}

/// "seconds MiB seconds;…", at most 200 of them: of each stretch the longest wait.
std::string describe(const std::vector<Sample>& samples) {
  static constexpr std::size_t POINTS = 200;
  std::string text;
  const std::size_t stretch = samples.size() / POINTS + 1;
  for (std::size_t i = 0; i < samples.size(); i += stretch) {
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(i);
    const auto last =
        samples.begin() + static_cast<std::ptrdiff_t>(std::min(i + stretch, samples.size()));
    const auto longest = std::ranges::max_element(first, last, {}, &Sample::wait);
    char point[64];
    (void)std::snprintf(point, sizeof point, "%.4f %.1f %.5f;", longest->seconds, longest->file_mib,
                        longest->wait);
    text += point;
  }
  return text;
}

void compaction(benchmark::State& state) {
  const TempDirectory directory;
  const fs::path half_free = directory / "half_free.db";
  make_half_free(half_free);
  const auto fresh = [&](const char* name) { return copy_index(half_free, directory / name); };

  std::optional<BareConnection> bare;
  std::optional<Database> db;
  const auto open_db = [&] {
    if (db) db->close();
    db.emplace(fresh("veldra.db")).connect();
  };
  std::vector<double> steps;
  compare(state, 1, 1.05,
          {.bare = {.run = [&] { steps.push_back(bare_compaction(*bare)); },
                    .before =
                        [&] {
                          bare.reset();
                          bare.emplace(fresh("bare.db"));
                        }},
           .veldra = {.run = [&] { db->compact(); }, .before = open_db}});

  std::vector<double> waits;
  for (int run = 0; run < 5; ++run) {
    open_db();
    const std::vector<Sample> samples = compact_beside_a_writer(*db);
    waits.push_back(std::ranges::max_element(samples, {}, &Sample::wait)->wait);
    state.SetLabel(describe(samples));
  }
  report(state, "longest_step", steps);
  report(state, "longest_wait", waits);
  db->close();
}

BENCHMARK(compaction)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace veldra::bench
