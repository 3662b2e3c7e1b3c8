// Many repositories on one host: a file each, a few of them asked for most of the time.
#include <malloc.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "support.h"
#include "veldra/storage/database_cache.h"

namespace veldra::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr Size REPOSITORY = {.files = 20, .symbols = 400, .edges = 600, .chunks = 20};
constexpr const char* QUERY =
    "SELECT id, file_id, name, kind, start_line, end_line FROM symbols WHERE name = ?";
constexpr std::size_t QUERIES = 20'000;

/// The indexes of a host: copies of one file, a hundred to a directory.
class Fleet {
 public:
  explicit Fleet(std::size_t size) {
    const fs::path original = _directory / "original.db";
    make_index(original, REPOSITORY);
    for (std::size_t number = 0; number < size; ++number) {
      const fs::path folder = _directory / std::to_string(number / 100);
      fs::create_directory(folder);
      _paths.push_back(copy_index(original, folder / (std::to_string(number) + ".db")));
    }
    ::sync();  // otherwise the disk is busy with it while the rest is measured
  }

  std::size_t size() const { return _paths.size(); }
  const fs::path& operator[](std::size_t number) const { return _paths[number]; }

 private:
  TempDirectory _directory;
  std::vector<fs::path> _paths;
};

void query(Database& db) {
  touch_symbol(db.fetchone(QUERY, {symbol(7, REPOSITORY).name}).value());
}

std::string as_time(double seconds) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), seconds < 1e-3 ? "%.0f µs" : "%.2f ms",
                      seconds * (seconds < 1e-3 ? 1e6 : 1e3));
  return text.data();
}

// What an open costs --------------------------------------------------------------------------

/// Seconds per file: until the first query is answered, and to close.
struct Times {
  std::vector<double> open, close;
};

/// What the layer asks of a connection that writes, by the C interface.
std::unique_ptr<BareConnection> bare_writer(const fs::path& path) {
  auto writer = std::make_unique<BareConnection>(path);
  writer->number("PRAGMA page_count");
  writer->run("PRAGMA page_size=8192; PRAGMA journal_mode=WAL; PRAGMA journal_size_limit=16777216");
  return writer;
}

void query(BareConnection& connection) {
  sqlite3_stmt* const statement = connection.prepare(QUERY);
  const std::string name = symbol(7, REPOSITORY).name;
  bind_text(statement, 1, name);
  connection.check(sqlite3_step(statement), SQLITE_ROW);
  touch_symbol(statement);
  sqlite3_reset(statement);
}

/// One connection that serves it all.
struct BareOne {
  std::unique_ptr<BareConnection> writer;
  explicit BareOne(const fs::path& path) : writer(bare_writer(path)) { query(*writer); }
};

/// One connection that writes and one that reads, as the layer has them.
struct BareTwo {
  std::unique_ptr<BareConnection> writer, reader;
  explicit BareTwo(const fs::path& path)
      : writer(bare_writer(path)),
        reader(std::make_unique<BareConnection>(path, SQLITE_OPEN_READONLY)) {
    query(*reader);
  }
  BareTwo(const BareTwo&) = delete;
  BareTwo& operator=(const BareTwo&) = delete;
  ~BareTwo() { reader.reset(); }  // the last to close must be able to write
};

/// Through a cache in which this file is the only one.
struct Cached {
  DatabaseCache cache{1};
  explicit Cached(const fs::path& path) { query(*cache.open(path)); }
};

template <typename Way>
void time_one(const fs::path& path, Times& times) {
  const Clock::time_point start = Clock::now();
  auto opened = std::make_unique<Way>(path);
  times.open.push_back(seconds_since(start));
  const Clock::time_point closing = Clock::now();
  opened.reset();
  times.close.push_back(seconds_since(closing));
}

double ratio(const std::vector<double>& of, const std::vector<double>& to) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < of.size(); ++i) ratios.push_back(of[i] / to[i]);
  return quantile(std::move(ratios), 0.5);
}

void show_cost_of_opening(const Fleet& fleet) {
  Times one, two, cached;
  for (std::size_t i = 0; i < 3000; ++i) {
    const fs::path& path = fleet[i * 7919 % std::min<std::size_t>(fleet.size(), 500)];
    time_one<BareOne>(path, one);
    time_one<BareTwo>(path, two);
    time_one<Cached>(path, cached);
  }
  std::cout << "\n| Medians, one thread | bare, 1 connection | bare, 2 | veldra | veldra / bare 1 "
               "| veldra / bare 2 |\n|---|---|---|---|---|---|\n";
  const auto row = [&](const char* title, std::vector<double> Times::*part) {
    std::cout << "| " << title;
    for (const Times* times : {&one, &two, &cached})
      std::cout << " | " << as_time(quantile(times->*part, 0.5));
    std::printf(" | %.2f | %.2f |\n", ratio(cached.*part, one.*part),
                ratio(cached.*part, two.*part));
    (void)std::fflush(stdout);
  };
  std::cout << std::unitbuf;
  row("open a file and answer the first query", &Times::open);
  row("close it", &Times::close);
}

// What a bounded cache does -------------------------------------------------------------------

struct Usage {
  double descriptors, bytes;
};

Usage usage() {
  malloc_trim(0);
  double pages = 0;
  std::ifstream("/proc/self/statm") >> pages >> pages;  // the second is what is resident
  const auto descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), {});
  return {static_cast<double>(descriptors), pages * static_cast<double>(sysconf(_SC_PAGESIZE))};
}

/// Threads that ask for one repository after another; the nth is asked for in proportion to 1/n.
class Load {
 public:
  Load(const Fleet& fleet, DatabaseCache& cache, std::size_t threads)
      : _fleet(fleet), _cache(cache), _threads(threads), _seen(fleet.size()) {
    for (std::size_t rank = 1; rank <= fleet.size(); ++rank)
      _weights.push_back(1 / static_cast<double>(rank));
  }

  /// All of them together ask that often.
  void run(std::size_t times) {
    hits.clear();
    misses.clear();
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < _threads; ++number)
      threads.emplace_back([this, times, seed = ++_seed] { _ask(times / _threads, seed); });
    for (std::thread& thread : threads) thread.join();
  }

  std::vector<double> hits, misses;  // seconds of an open with a query

 private:
  void _ask(std::size_t times, unsigned seed) {
    std::mt19937 random(seed);
    std::discrete_distribution<std::size_t> draw(_weights.begin(), _weights.end());
    for (std::size_t i = 0; i < times; ++i) {
      const std::size_t number = draw(random);
      const Clock::time_point start = Clock::now();
      const std::shared_ptr<Database> db = _cache.open(_fleet[number]);
      query(*db);
      _note(number, *db, seconds_since(start));
    }
  }

  /// The writer connection that was seen before is there still: the file was open.
  void _note(std::size_t number, const Database& db, double seconds) {
    const std::shared_ptr<Connection> writer = db.connection();
    const std::lock_guard lock(_mutex);
    (_seen[number].lock() == writer ? hits : misses).push_back(seconds);
    _seen[number] = writer;
  }

  const Fleet& _fleet;
  DatabaseCache& _cache;
  const std::size_t _threads;
  std::vector<double> _weights;
  std::mutex _mutex;  // guards the seconds and the next field
  std::vector<std::weak_ptr<Connection>> _seen;
  unsigned _seed = 0;
};

void show_bound(const Fleet& fleet, std::size_t threads, std::size_t max_open) {
  const Usage before = usage();
  DatabaseCache cache(max_open);
  Load load(fleet, cache, threads);
  while (cache.size() < std::min(max_open, fleet.size())) load.run(QUERIES / 10);
  const Clock::time_point start = Clock::now();
  load.run(QUERIES);
  const double seconds = seconds_since(start);
  const Usage after = usage();

  const auto asked = static_cast<double>(load.hits.size() + load.misses.size());
  const auto open = static_cast<double>(cache.size());
  std::printf("| %zu | %.0f %%", max_open, 100 * static_cast<double>(load.hits.size()) / asked);
  for (const std::vector<double>* times : {&load.hits, &load.misses})
    for (const double share : {0.5, 0.99})
      std::printf(" | %s", times->empty() ? "" : as_time(quantile(*times, share)).c_str());
  std::printf(" | %.0f | %.1f | %.0f KiB |\n", asked / seconds,
              (after.descriptors - before.descriptors) / open,
              (after.bytes - before.bytes) / open / 1024);
  (void)std::fflush(stdout);
  cache.close();
}

void show_bounds(const Fleet& fleet, std::size_t threads) {
  std::printf(
      "\n| open at most | hits | hit, median | hit, 99th percentile | miss, median "
      "| miss, 99th percentile | queries per second | descriptors per file | memory per file |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
  for (const std::size_t max_open : {64U, 256U, 1024U}) show_bound(fleet, threads, max_open);
}

// What a database keeps that nobody asks for any more -------------------------------------------

constexpr Size LARGE = {.files = 500, .symbols = 20'000, .edges = 30'000, .chunks = 500};
constexpr const char* SCAN =
    "SELECT sum(length(name)), max(line) FROM symbols, edges ON source_id = symbols.id";

/// Fills the page caches of that many read connections, and of the writer.
void fill_caches(Database& db, int readers) {
  if (readers == 0) {
    db.transaction([](Cursor& cursor) {
      cursor.execute(SCAN);
      cursor.fetchall();
    });
    return;
  }
  db.snapshot([&](Snapshot& snapshot) {
    snapshot.fetchall(SCAN);
    fill_caches(db, readers - 1);
  });
}

void show_idle() {
  constexpr std::size_t COUNT = 40;
  const TempDirectory directory;
  std::vector<fs::path> paths = {directory / "original.db"};
  make_index(paths[0], LARGE);
  while (paths.size() <= COUNT)
    paths.push_back(copy_index(paths[0], directory / (std::to_string(paths.size()) + ".db")));

  std::printf(
      "\n| An open index of %ju KiB | descriptors | memory | the next open |\n|---|---|---|---|\n",
      fs::file_size(paths[0]) / 1024);
  DatabaseCache cache(paths.size());
  const auto last = cache.open(paths[0]);
  const Usage before = usage();
  const auto show = [&](const char* when, double seconds) {
    const Usage now = usage();
    std::printf("| %s | %.1f | %.0f KiB | %s |\n", when,
                (now.descriptors - before.descriptors) / COUNT,
                (now.bytes - before.bytes) / COUNT / 1024, as_time(seconds).c_str());
    (void)std::fflush(stdout);
  };
  const auto time_open = [&] {
    const Clock::time_point start = Clock::now();
    cache.open(paths[0]);
    return seconds_since(start);
  };
  for (std::size_t i = 1; i <= COUNT; ++i) fill_caches(*cache.open(paths[i]), reader_count());
  show("after large queries", time_open());
  std::this_thread::sleep_for(std::chrono::seconds(62));
  const double first = time_open();
  for (std::size_t i = 0; i < COUNT; ++i) time_open();
  show("a minute later", first);
}

int run(std::size_t repositories, std::size_t threads) {
  spdlog::default_logger()->set_level(spdlog::level::warn);
  rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  setrlimit(RLIMIT_NOFILE, &descriptors);

  const Clock::time_point start = Clock::now();
  const Fleet fleet(repositories);
  std::printf("%zu files of %ju KiB, copied in %.1f s; %zu threads\n", fleet.size(),
              fs::file_size(fleet[0]) / 1024, seconds_since(start), threads);
  show_bounds(fleet, threads);
  show_cost_of_opening(fleet);
  show_idle();
  return 0;
}

}  // namespace
}  // namespace veldra::bench

int main(int count, char** arguments) {
  const int repositories = count > 1 ? std::atoi(arguments[1]) : 10'000;
  const int threads = count > 2 ? std::atoi(arguments[2]) : 2;
  if (count > 3 || repositories < 1 || threads < 1) {
    std::cerr << "veldra_scaling [REPOSITORIES [THREADS]]\n";
    return 2;
  }
  return veldra::bench::run(static_cast<std::size_t>(repositories),
                            static_cast<std::size_t>(threads));
}
