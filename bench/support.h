#pragma once

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace SQLite {
class Statement;
}

namespace veldra {
class Row;
}

/// What the benchmarks share: one dataset, bare SQLite as a careful C programmer uses it, and the
/// comparison of the three ways to do the same work.
namespace veldra::bench {

/// A directory below the system's temporary one (`TMPDIR`), removed with all it holds.
class TempDirectory {
 public:
  TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  std::filesystem::path operator/(std::string_view name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

/// A connection of the C interface, opened as its users open one: `sqlite3_open_v2` with the
/// defaults, the layer's pragmas, each statement prepared once and kept.
class BareConnection {
 public:
  explicit BareConnection(const std::filesystem::path& path, int flags = SQLITE_OPEN_READWRITE);
  BareConnection(const BareConnection&) = delete;
  BareConnection& operator=(const BareConnection&) = delete;
  ~BareConnection();

  sqlite3* get() const { return _db; }

  /// Prepares `sql` for use until the connection closes.
  sqlite3_stmt* prepare(const char* sql);

  /// Runs one statement, prepared for this run, to its end.
  void run(const char* sql);

  /// Runs one statement and returns the first column of its first row, a number.
  std::int64_t number(const char* sql);

  /// Throws SQLite's message unless `code` is the one expected.
  void check(int code, int expected = SQLITE_OK) const;

 private:
  sqlite3* _db = nullptr;
  std::vector<sqlite3_stmt*> _statements;
};

// The dataset ------------------------------------------------------------------------------------

/// How many rows an index file has in each table; symbols, edges and chunks are spread evenly.
struct Size {
  std::int64_t files;
  std::int64_t symbols;
  std::int64_t edges = 0;
  std::int64_t chunks = 0;
};

/// The file that queries only read.
inline constexpr Size SHARED = {.files = 2000, .symbols = 100'000, .chunks = 10'000};

/// The columns of a symbol that the benchmarks read; every way reads each of them.
struct Symbol {
  std::int64_t id;
  std::int64_t file_id;
  std::string name;
  std::string kind;
  std::int64_t start_line;
  std::int64_t end_line;
};

/// The symbol of this number, from 1, in a file of that size.
Symbol symbol(std::int64_t number, const Size& size = SHARED);

/// Makes an index file: its tables by the layer's own `create_schema`, its rows through the C
/// interface. The same rows in every run.
void make_index(const std::filesystem::path& path, const Size& size);

/// Copies an index file that nobody has open, over what `to` names; returns `to`.
std::filesystem::path copy_index(const std::filesystem::path& from,
                                 const std::filesystem::path& to);

/// The path of a file of the size `SHARED`; made on first use, once per run.
const std::filesystem::path& shared_index();

/// Binds without a copy: the values stay until the statement has run.
void bind_text(sqlite3_stmt* statement, int position, const std::string& text);
void bind_symbol(sqlite3_stmt* statement, const Symbol& symbol);

/// Reads the six columns of a symbol, from the row that a statement stands on or from a row.
void touch_symbol(sqlite3_stmt* statement);
void touch_symbol(const Row& row);

/// What a user of SQLiteCpp makes of a row that is to outlive its statement.
Symbol read_symbol(SQLite::Statement& statement);

// Comparing --------------------------------------------------------------------------------------

/// One way to do the work of a benchmark. `before`, when there is one, is not timed.
struct Way {
  std::function<void()> run;
  std::function<void()> before = {};
};

/// The same work on the bare C interface, through the layer, and, when there is one, on SQLiteCpp.
struct Ways {
  Way bare;
  Way veldra;
  Way sqlitecpp = {};
};

/// Runs the ways in turn, once per iteration of `state`, in an order drawn anew each time, so that
/// whatever else the machine does meets all of them alike.
///
/// Counters, times in seconds for one of the `operations` of a run: `bare`, `veldra` and
/// `sqlitecpp` are medians; `ratio` is the median of veldra / bare over the iterations, `gain` of
/// sqlitecpp / veldra, each with its quartiles (`_low`, `_high`). `limit` is what `ratio` may be.
void compare(benchmark::State& state, std::int64_t operations, double limit, const Ways& ways);

/// Adds a value, or the median and the quartiles of several, to the counters of `state`.
void report(benchmark::State& state, const std::string& name, std::vector<double> values);

/// The seconds since `start`.
double seconds_since(std::chrono::steady_clock::time_point start);

/// The value below which the share `quantile` of `values` lies.
double quantile(std::vector<double> values, double quantile);

}  // namespace veldra::bench
