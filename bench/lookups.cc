// Point queries the three ways.
#include "lookups.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <optional>

#include "support.h"

namespace veldra::bench {
namespace {

constexpr const char* BY_KEY =
    "SELECT id, file_id, name, kind, start_line, end_line FROM symbols WHERE id = ?";
constexpr const char* BY_NAME =
    "SELECT id, file_id, name, kind, start_line, end_line FROM symbols WHERE name = ?";

class BareLookup : public Lookup {
 public:
  BareLookup(const std::filesystem::path& path, int flags) : _connection(path, flags) {}

  void by_key(std::int64_t key) override {
    sqlite3_bind_int64(_by_key, 1, key);
    _read_one(_by_key);
  }

  void by_name(const std::string& name) override {
    bind_text(_by_name, 1, name);
    _read_one(_by_name);
  }

 private:
  void _read_one(sqlite3_stmt* statement) {
    _connection.check(sqlite3_step(statement), SQLITE_ROW);
    touch_symbol(statement);
    sqlite3_reset(statement);
  }

  BareConnection _connection;
  sqlite3_stmt* const _by_key = _connection.prepare(BY_KEY);
  sqlite3_stmt* const _by_name = _connection.prepare(BY_NAME);
};

class VeldraLookup : public Lookup {
 public:
  explicit VeldraLookup(Database& db) : _db(db) {}

  void by_key(std::int64_t key) override {
    const std::optional<Row> row = _db.fetchone(BY_KEY, {key});
    touch_symbol(row.value());
  }

  void by_name(const std::string& name) override {
    const std::optional<Row> row = _db.fetchone(BY_NAME, {name});
    touch_symbol(row.value());
  }

 private:
  Database& _db;
};

class SqlitecppLookup : public Lookup {
 public:
  explicit SqlitecppLookup(const std::filesystem::path& path)
      : _connection(path.string(), SQLite::OPEN_READWRITE, 5000) {}

  void by_key(std::int64_t key) override {
    SQLite::Statement query(_connection, BY_KEY);
    query.bind(1, key);
    if (query.executeStep()) benchmark::DoNotOptimize(read_symbol(query));
  }

  void by_name(const std::string& name) override {
    SQLite::Statement query(_connection, BY_NAME);
    query.bind(1, name);
    if (query.executeStep()) benchmark::DoNotOptimize(read_symbol(query));
  }

 private:
  SQLite::Database _connection;
};

}  // namespace

std::unique_ptr<Lookup> bare_lookup(const std::filesystem::path& path, int flags) {
  return std::make_unique<BareLookup>(path, flags);
}

std::unique_ptr<Lookup> veldra_lookup(Database& db) {
  return std::make_unique<VeldraLookup>(db);
}

std::unique_ptr<Lookup> sqlitecpp_lookup(const std::filesystem::path& path) {
  return std::make_unique<SqlitecppLookup>(path);
}

}  // namespace veldra::bench
