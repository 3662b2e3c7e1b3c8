// The registry of migration steps and the one loop that runs them.
#include "veldra/storage/migrations.h"

#include <sqlite3.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>

#include "veldra/logging.h"

namespace veldra {

namespace {

/// The cursor of a step's transaction, and the statement it is at, for the record of a failure.
class StepCursor {
 public:
  StepCursor(Cursor& cursor, std::string& statement) : _cursor(cursor), _statement(statement) {}

  void execute(std::string_view sql, const Params& params = {}) {
    _statement = sql;
    _cursor.execute(sql, params);
  }

  std::optional<Row> fetchone(std::string_view sql, const Params& params = {}) {
    execute(sql, params);
    return _cursor.fetchone();
  }

  bool has(std::string_view type, std::string_view name) {
    return fetchone("SELECT 1 FROM sqlite_master WHERE type = ? AND lower(name) = ?", {type, name})
        .has_value();
  }

 private:
  Cursor& _cursor;
  std::string& _statement;
};

// Steps look before they add: create_schema may have added the same to the file before.

void add_code_chunks(StepCursor& cursor) {
  if (!cursor.has("table", "code_chunks")) cursor.execute(CODE_CHUNKS_DDL);
  if (!cursor.has("table", "files")) return;
  if (!cursor.has("trigger", "files_delete_chunks")) cursor.execute(CHUNKS_TRIGGER_DDL);
  cursor.execute("UPDATE files SET hash = ?", {REINDEX_SENTINEL_HASH});
}

void add_parent_and_line(StepCursor& cursor) {
  static constexpr std::string_view HAS_COLUMN =
      "SELECT 1 FROM pragma_table_info(?, 'main') WHERE lower(name) = ?";
  if (cursor.has("table", "symbols") && !cursor.fetchone(HAS_COLUMN, {"symbols", "parent_id"}))
    cursor.execute("ALTER TABLE symbols ADD COLUMN parent_id INTEGER");
  if (cursor.has("table", "index_errors") && !cursor.fetchone(HAS_COLUMN, {"index_errors", "line"}))
    cursor.execute("ALTER TABLE index_errors ADD COLUMN line INTEGER");
}

struct Version {
  std::string_view name;
  void (*reach)(StepCursor&);  // from the version before; none for the first
};

constexpr Version VERSIONS[] = {
    {OLDEST_VERSION, nullptr},
    {"2", add_code_chunks},
    {SCHEMA_VERSION, add_parent_and_line},
};

/// The place of a version in the order of releases; none when it is not known.
std::optional<std::ptrdiff_t> place_of(std::string_view version) {
  const Version* found = std::find_if(std::begin(VERSIONS), std::end(VERSIONS),
                                      [&](const Version& known) { return known.name == version; });
  return found == std::end(VERSIONS) ? std::nullopt
                                     : std::optional(std::distance(std::begin(VERSIONS), found));
}

std::string recorded_version(StepCursor& cursor) {
  const std::optional<Row> row =
      cursor.fetchone("SELECT value FROM schema_info WHERE key = 'version'");
  return (row ? stored_text((*row)[0]) : std::nullopt).value_or(std::string(OLDEST_VERSION));
}

/// Brings the file to `version` unless it is there already or further, and returns where it is.
std::string reach(const TransactionOpener& open_transaction, const Version& version) {
  std::string reached;
  std::string statement = "BEGIN";
  try {
    open_transaction([&](Cursor& transaction) {
      StepCursor cursor(transaction, statement);
      statement = "taking the write lock";
      take_write_lock(transaction);
      reached = recorded_version(cursor);
      if (const auto place = place_of(reached); place && *place < *place_of(version.name)) {
        version.reach(cursor);
        cursor.execute("INSERT OR REPLACE INTO schema_info (key, value) VALUES ('version', ?)",
                       {version.name});
        reached = version.name;
      }
      statement = "COMMIT";
    });
  } catch (const RuntimeError&) {
    throw;  // the database was closed meanwhile: no fault of the step
  } catch (const std::exception& error) {
    const std::string failed =
        std::string("Schema migration to version ").append(version.name).append(" failed");
    log_line(LogUnit::Migrations, LogLevel::Error, failed, error, statement);
    throw SchemaMigrationError(failed + ": " + error.what());
  }
  return reached;
}

}  // namespace

std::string migrate(const TransactionOpener& open_transaction, std::string_view recorded) {
  std::string reached(recorded);
  for (const Version& version : VERSIONS) {
    const std::optional<std::ptrdiff_t> place = place_of(reached);
    if (place && *place < *place_of(version.name)) reached = reach(open_transaction, version);
  }
  return reached;
}

std::int64_t mark_files_stale(Cursor& cursor, const std::vector<std::string>& languages) {
  ParamsList each;
  each.reserve(languages.size());
  for (const std::string& language : languages)
    each.push_back({REINDEX_SENTINEL_HASH, language, REINDEX_SENTINEL_HASH});
  cursor.executemany("UPDATE files SET hash = ? WHERE language = ? AND hash <> ?", each);
  return cursor.rowcount();
}

void run_ddl(Cursor& cursor, std::string_view ddl) {
  // A semicolon ends a statement unless it stands in a trigger, a text or a comment: SQLite tells.
  std::string statement;
  for (const char letter : ddl) {
    statement.push_back(letter);
    if (letter == ';' && sqlite3_complete(statement.c_str()) != 0) {
      cursor.execute(statement);
      statement.clear();
    }
  }
  cursor.execute(statement);
}

}  // namespace veldra
