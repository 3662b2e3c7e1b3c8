// One dataset, bare SQLite, and the comparison of the ways to do the same work.
#include "support.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>
#include <stdexcept>

#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

/// Text that looks like code to the tokeniser: a few words are everywhere, most are rare.
std::string chunk_text(std::mt19937& random) {
  std::string text;
  for (int line = 0; line < 30; ++line) {
    text += "  ";
    for (int word = 0; word < 5; ++word) {
      const double draw = std::generate_canonical<double, 32>(random);
      text += "word_" + std::to_string(static_cast<int>(std::pow(20'000.0, draw))) + ' ';
    }
    text += ";\n";
  }
  return text;
}

void step(BareConnection& bare, sqlite3_stmt* statement) {
  bare.check(sqlite3_step(statement), SQLITE_DONE);
  sqlite3_reset(statement);
}

void fill_files(BareConnection& bare, const Size& size) {
  sqlite3_stmt* const insert =
      bare.prepare("INSERT INTO files (id, path, language, hash) VALUES (?, ?, 'C++', '0f')");
  for (std::int64_t id = 1; id <= size.files; ++id) {
    const std::string path =
        "src/part" + std::to_string(id % 40) + "/file" + std::to_string(id) + ".cc";
    sqlite3_bind_int64(insert, 1, id);
    bind_text(insert, 2, path);
    step(bare, insert);
  }
}

void fill_symbols(BareConnection& bare, const Size& size) {
  sqlite3_stmt* const insert = bare.prepare(
      "INSERT INTO symbols (id, file_id, name, kind, start_line, end_line) "
      "VALUES (?, ?, ?, ?, ?, ?)");
  for (std::int64_t number = 1; number <= size.symbols; ++number) {
    const Symbol values = symbol(number, size);
    bind_symbol(insert, values);
    step(bare, insert);
  }
}

void fill_edges(BareConnection& bare, const Size& size) {
  sqlite3_stmt* const insert = bare.prepare(
      "INSERT INTO edges (id, source_id, target_id, kind, line) VALUES (?, ?, ?, 'calls', ?)");
  for (std::int64_t number = 1; number <= size.edges; ++number) {
    sqlite3_bind_int64(insert, 1, number);
    sqlite3_bind_int64(insert, 2, (number - 1) * size.symbols / size.edges + 1);
    sqlite3_bind_int64(insert, 3, number * 7919 % size.symbols + 1);
    sqlite3_bind_int64(insert, 4, number % 2000);
    step(bare, insert);
  }
}

void fill_chunks(BareConnection& bare, const Size& size) {
  sqlite3_stmt* const insert = bare.prepare(
      "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact) VALUES (?, ?, ?, ?, 1)");
  std::mt19937 random(1);
  for (std::int64_t number = 0; number < size.chunks; ++number) {
    const std::string text = chunk_text(random);
    const std::int64_t ordinal = number / size.files;
    sqlite3_bind_int64(insert, 1, (number % size.files + 1) * 1048576 + ordinal);
    bind_text(insert, 2, text);
    sqlite3_bind_int64(insert, 3, ordinal * 30 + 1);
    sqlite3_bind_int64(insert, 4, ordinal * 30 + 30);
    step(bare, insert);
  }
}

double seconds(const Way& way) {
  if (way.before) way.before();
  const auto start = std::chrono::steady_clock::now();
  way.run();
  return seconds_since(start);
}

}  // namespace

TempDirectory::TempDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "veldra-bench-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr)
    throw std::runtime_error("no directory could be made: " + name);
  _path = name;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

BareConnection::BareConnection(const std::filesystem::path& path, int flags) {
  check(sqlite3_open_v2(path.c_str(), &_db, flags, nullptr));
  sqlite3_busy_timeout(_db, 5000);
  if ((flags & SQLITE_OPEN_READONLY) != 0) return;
  run("PRAGMA foreign_keys=ON");
  run("PRAGMA synchronous=NORMAL");
}

BareConnection::~BareConnection() {
  for (sqlite3_stmt* const statement : _statements) sqlite3_finalize(statement);
  sqlite3_close(_db);
}

sqlite3_stmt* BareConnection::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v3(_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
  _statements.push_back(statement);
  return statement;
}

void BareConnection::run(const char* sql) {
  check(sqlite3_exec(_db, sql, nullptr, nullptr, nullptr));
}

std::int64_t BareConnection::number(const char* sql) {
  sqlite3_stmt* query = nullptr;
  check(sqlite3_prepare_v2(_db, sql, -1, &query, nullptr));
  const int code = sqlite3_step(query);
  const std::int64_t number = sqlite3_column_int64(query, 0);
  sqlite3_finalize(query);
  check(code, SQLITE_ROW);
  return number;
}

void BareConnection::check(int code, int expected) const {
  if (code != expected) throw std::runtime_error(sqlite3_errmsg(_db));
}

Symbol symbol(std::int64_t number, const Size& size) {
  static constexpr std::array<const char*, 4> KINDS = {"function", "method", "class", "variable"};
  static constexpr std::array<const char*, 4> VERBS = {"read_", "parse_header_of_", "is_",
                                                       "write_"};
  const auto choice = static_cast<std::size_t>(number % 4);
  return {.id = number,
          .file_id = (number - 1) * size.files / size.symbols + 1,
          .name = VERBS[choice] + std::to_string(number),
          .kind = KINDS[choice],
          .start_line = number % 50 * 40 + 1,
          .end_line = number % 50 * 40 + 30};
}

void make_index(const std::filesystem::path& path, const Size& size) {
  Database db(path);
  db.connect();
  db.create_schema();
  db.close();
  BareConnection bare(path);
  bare.run("BEGIN");
  fill_files(bare, size);
  fill_symbols(bare, size);
  fill_edges(bare, size);
  fill_chunks(bare, size);
  bare.run("COMMIT");
  bare.run("PRAGMA wal_checkpoint(TRUNCATE)");
}

std::filesystem::path copy_index(const std::filesystem::path& from,
                                 const std::filesystem::path& to) {
  std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
  return to;
}

const std::filesystem::path& shared_index() {
  static const TempDirectory directory;
  static const std::filesystem::path path = [] {
    std::filesystem::path made = directory / "index.db";
    make_index(made, SHARED);
    return made;
  }();
  return path;
}

void bind_text(sqlite3_stmt* statement, int position, const std::string& text) {
  sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

void bind_symbol(sqlite3_stmt* statement, const Symbol& symbol) {
  sqlite3_bind_int64(statement, 1, symbol.id);
  sqlite3_bind_int64(statement, 2, symbol.file_id);
  bind_text(statement, 3, symbol.name);
  bind_text(statement, 4, symbol.kind);
  sqlite3_bind_int64(statement, 5, symbol.start_line);
  sqlite3_bind_int64(statement, 6, symbol.end_line);
}

void touch_symbol(sqlite3_stmt* statement) {
  std::int64_t sum = sqlite3_column_int64(statement, 0) + sqlite3_column_int64(statement, 1);
  for (const int column : {2, 3}) {
    sum += *sqlite3_column_text(statement, column);
    sum += sqlite3_column_bytes(statement, column);
  }
  sum += sqlite3_column_int64(statement, 4) + sqlite3_column_int64(statement, 5);
  benchmark::DoNotOptimize(sum);
}

void touch_symbol(const Row& row) {
  std::int64_t sum = row[0].as_integer() + row[1].as_integer();
  for (const std::size_t column : {2U, 3U}) {
    const std::string_view text = row[column].as_text();
    sum += static_cast<std::int64_t>(text.size()) + text.front();
  }
  sum += row[4].as_integer() + row[5].as_integer();
  benchmark::DoNotOptimize(sum);
}

Symbol read_symbol(SQLite::Statement& statement) {
  return {.id = statement.getColumn(0).getInt64(),
          .file_id = statement.getColumn(1).getInt64(),
          .name = statement.getColumn(2).getString(),
          .kind = statement.getColumn(3).getString(),
          .start_line = statement.getColumn(4).getInt64(),
          .end_line = statement.getColumn(5).getInt64()};
}

void compare(benchmark::State& state, std::int64_t operations, double limit, const Ways& ways) {
  std::array<const Way*, 3> all = {&ways.bare, &ways.veldra, &ways.sqlitecpp};
  const std::size_t count = ways.sqlitecpp.run ? 3 : 2;
  for (std::size_t i = 0; i < count; ++i)
    seconds(*all[i]);  // opens connections, prepares statements, warms caches
  std::array<std::vector<double>, 3> times;
  std::array<std::size_t, 3> order = {0, 1, 2};
  std::mt19937 random(1);
  for ([[maybe_unused]] auto _ : state) {
    std::shuffle(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(count), random);
    for (std::size_t i = 0; i < count; ++i)
      times[order[i]].push_back(seconds(*all[order[i]]) / static_cast<double>(operations));
    state.SetIterationTime(times[1].back() * static_cast<double>(operations));
  }

  const auto divided = [](const std::vector<double>& values, const std::vector<double>& by) {
    std::vector<double> ratios;
    std::ranges::transform(values, by, std::back_inserter(ratios), std::divides<>());
    return ratios;
  };
  state.counters["limit"] = limit;
  report(state, "bare", {quantile(times[0], 0.5)});
  report(state, "veldra", {quantile(times[1], 0.5)});
  report(state, "ratio", divided(times[1], times[0]));
  if (count == 3) {
    report(state, "sqlitecpp", {quantile(times[2], 0.5)});
    report(state, "gain", divided(times[2], times[1]));
  }
}

void report(benchmark::State& state, const std::string& name, std::vector<double> values) {
  if (values.size() > 1) {
    state.counters[name + "_low"] = quantile(values, 0.25);
    state.counters[name + "_high"] = quantile(values, 0.75);
  }
  state.counters[name] = quantile(std::move(values), 0.5);
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double quantile(std::vector<double> values, double quantile) {
  const auto last = static_cast<double>(values.size() - 1);
  const auto nth = values.begin() + std::lround(quantile * last);
  std::ranges::nth_element(values, nth);
  return *nth;
}

}  // namespace veldra::bench
