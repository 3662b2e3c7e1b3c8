// Emptying the index, and replacing it as a whole from a staging file.
#include <array>
#include <cassert>
#include <filesystem>
#include <utility>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/migrations.h"

namespace veldra {
namespace {

/// Children before parents, so that no foreign key is broken on the way; filling is the reverse.
constexpr std::array<std::string_view, 6> CLEARING_ORDER = {
    "edges", "external_imports", "symbols", "files", "components", "index_errors"};
constexpr std::array<std::string_view, 6> FILLING_ORDER = {
    "components", "files", "symbols", "edges", "external_imports", "index_errors"};

/// Writes nothing, but takes the file's write lock under the busy timeout. A deferred transaction
/// that reads first could not write any more after another process has
/// (https://www.sqlite.org/rescode.html#busy_snapshot).
constexpr std::string_view TAKE_WRITE_LOCK = "DELETE FROM edges WHERE 0";

constexpr std::string_view COPY_CHUNKS =
    "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact) "
    "SELECT rowid, text, start_line, end_line, exact FROM stg.code_chunks";

/// How FTS5 makes its index: its own defaults, and what saves much of the merging of segments when
/// every chunk comes at once. More memory, in bytes, is gathered before a segment is written, and
/// more segments before they are merged; but not so many that merging them would hold up a small
/// write later (https://www.sqlite.org/fts5.html#automerge; the other option stands in FTS5's
/// source alone, fts5_config.c).
struct FullTextOptions {
  std::int64_t hashsize;
  std::int64_t automerge;
};
constexpr FullTextOptions USUAL_OPTIONS = {1024 * 1024, 4};
constexpr FullTextOptions COPY_OPTIONS = {2 * USUAL_OPTIONS.hashsize, 8};

/// The page cache of a swap, in the pragma's unit: KiB, negative. Without it pages of a big swap
/// are written to the log, read and written again.
constexpr std::string_view SWAP_CACHE_SIZE = "-49152";

// The names in the statements below are those of the two orders, and of columns that the file
// itself declares; SQLite binds values, not names.
std::string concat(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text.append(part);
  return text;
}

void delete_all(Cursor& cursor) {
  for (const std::string_view table : CLEARING_ORDER)
    cursor.execute(concat({"DELETE FROM ", table}));
}

std::int64_t inserted(const Cursor& cursor) {
  return std::max<std::int64_t>(cursor.rowcount(), 0);
}

void set_options(Cursor& cursor, const FullTextOptions& options) {
  cursor.executemany("INSERT INTO code_chunks (code_chunks, rank) VALUES (?, ?)",
                     {{"hashsize", options.hashsize}, {"automerge", options.automerge}});
}

/// Fills the new, empty `code_chunks` from the staging file; how many chunks there were.
std::int64_t copy_chunks(Cursor& cursor) {
  set_options(cursor, COPY_OPTIONS);
  cursor.execute(COPY_CHUNKS);
  const std::int64_t count = inserted(cursor);
  set_options(cursor, USUAL_OPTIONS);
  return count;
}

/// "{'edges': 12, 'files': 3}"
std::string describe(const RowCounts& counts) {
  std::string text = "{";
  for (const auto& [table, count] : counts) {
    if (text.size() > 1) text += ", ";
    text += concat({"'", table, "': ", std::to_string(count)});
  }
  return text + "}";
}

/// The column list of each table of `FILLING_ORDER`, as the live file declares it.
std::array<std::string, FILLING_ORDER.size()> live_columns(Connection& connection) {
  std::array<std::string, FILLING_ORDER.size()> lists;
  for (std::size_t i = 0; i < FILLING_ORDER.size(); ++i) {
    Cursor cursor = connection.execute(concat({"PRAGMA table_info(", FILLING_ORDER[i], ")"}));
    while (const std::optional<Row> column = cursor.fetchone()) {
      if (!lists[i].empty()) lists[i] += ", ";
      lists[i] += (*column)[1].as_text();
    }
  }
  return lists;
}

/// What SQLite needs to make an index again.
struct Index {
  std::string name;
  std::string sql;
};

/// The indexes of the six tables that serve queries only. Unique ones are left alone: they hold the
/// staging rows to their promise, and a foreign key may rely on them.
std::vector<Index> plain_indexes(Cursor& cursor) {
  std::vector<Index> indexes;
  for (const std::string_view table : CLEARING_ORDER) {
    cursor.execute(
        "SELECT made.name, made.sql FROM pragma_index_list(?) AS listed "
        "JOIN main.sqlite_master AS made ON made.type = 'index' AND made.name = listed.name "
        "WHERE NOT listed.\"unique\" AND made.sql IS NOT NULL ORDER BY made.rowid",
        {table});
    while (const std::optional<Row> row = cursor.fetchone()) {
      indexes.push_back({std::string((*row)[0].as_text()), std::string((*row)[1].as_text())});
    }
  }
  return indexes;
}

void drop(Cursor& cursor, const std::vector<Index>& indexes) {
  for (const Index& index : indexes) {
    std::string quoted_name;
    for (const char letter : index.name) quoted_name.append(letter == '"' ? 2 : 1, letter);
    cursor.execute(concat({"DROP INDEX main.\"", quoted_name, "\""}));
  }
}

/// Gives the rows of ANALYZE's tables another index name, `idx` being the one they have: DROP INDEX
/// deletes those of its index, and nothing would bring them back.
void rename_statistics(Cursor& cursor, std::string_view new_name) {
  for (const std::string_view table : {"sqlite_stat1", "sqlite_stat4"}) {
    cursor.execute("SELECT 1 FROM main.sqlite_master WHERE name = ?", {table});
    if (cursor.fetchone()) {
      cursor.execute(concat({"UPDATE main.", table, " SET idx = ", new_name}));
    }
  }
}

/// A staging file must be a database file of its own: SQLite would wait for ever on a pipe, and
/// would empty the live index if it were its own staging file.
void check_staging(const std::filesystem::path& staging_path,
                   const std::filesystem::path& db_path) {
  std::error_code code;
  const std::filesystem::file_status status = std::filesystem::status(staging_path, code);
  if (status.type() == std::filesystem::file_type::not_found) {
    throw FileNotFoundError("Staging database not found: " + staging_path.string());
  }
  if (status.type() == std::filesystem::file_type::none) {
    throw_os_error(code, "cannot look at the staging database", staging_path);
  }
  if (status.type() != std::filesystem::file_type::regular) {
    throw ProgrammingError("the staging database is not a regular file: " + staging_path.string());
  }
  if (std::filesystem::equivalent(staging_path, db_path, code)) {
    throw ProgrammingError("the staging database is the live index itself: " +
                           staging_path.string());
  }
}

/// The staging file attached to the writer as "stg" for a scope.
class Attachment {
 public:
  Attachment(Connection& connection, const std::filesystem::path& staging_path)
      : _connection(connection) {
    if (_leftover()) _connection.execute("DETACH DATABASE stg");
    _connection.execute("ATTACH DATABASE ? AS stg", {plain_file_name(staging_path)});
  }
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;
  ~Attachment() {
    try {
      _connection.execute("DETACH DATABASE stg");
    } catch (const std::exception&) {
      // The swap's result stands; inside the caller's own transaction SQLite cannot detach yet. The
      // next attachment clears what is left.
    }
  }

 private:
  bool _leftover() {
    return _connection.execute("SELECT 1 FROM pragma_database_list WHERE name = 'stg'")
        .fetchone()
        .has_value();
  }

  Connection& _connection;
};

/// A pragma of the writer that has another value for a scope.
class ScopedPragma {
 public:
  ScopedPragma(Connection& connection, std::string_view name, std::string_view value)
      : _connection(connection), _name(name), _usual(current(connection, name)) {
    _set(value);
  }
  ScopedPragma(const ScopedPragma&) = delete;
  ScopedPragma& operator=(const ScopedPragma&) = delete;
  ~ScopedPragma() {
    try {
      _set(std::to_string(_usual));
    } catch (const std::exception&) {
      // Only memory was lacking, or the connection is closed; none of these changes a result.
    }
  }

  static std::int64_t current(Connection& connection, std::string_view name) {
    return (*connection.fetchone(concat({"PRAGMA main.", name})))[0].as_integer();
  }

 private:
  void _set(std::string_view value) {
    _connection.fetchall(concat({"PRAGMA main.", _name, "=", value}));
  }

  Connection& _connection;
  std::string_view _name;
  std::int64_t _usual;
};

/// Where SQLite overwrites what is deleted with zeros, as Debian's does: for a scope, only on the
/// pages that are written anyway, not on every page that becomes free
/// (https://www.sqlite.org/pragma.html#pragma_secure_delete).
class FastDelete {
 public:
  explicit FastDelete(Connection& connection) {
    if (ScopedPragma::current(connection, "secure_delete") == 1)
      _pragma.emplace(connection, "secure_delete", "FAST");
  }

 private:
  std::optional<ScopedPragma> _pragma;
};

}  // namespace

void Database::clear_all() {
  RowCounts removed;
  {
    const std::lock_guard guard(_lock);
    const FastDelete fast_delete(*connection());
    transaction([&](Cursor& cursor) {
      cursor.execute(TAKE_WRITE_LOCK);
      for (const std::string_view table : CLEARING_ORDER) {
        cursor.execute(concat({"SELECT COUNT(*) FROM ", table}));
        const std::optional<Row> row = cursor.fetchone();
        removed.add(table, row ? (*row)[0].as_integer() : 0);
      }
      _empty_code_chunks(cursor);
      delete_all(cursor);
    });
  }
  log_line(LogUnit::Database, LogLevel::Info,
           "clear_all: cleared all index data (rows removed: " + describe(removed) + ")");
}

RowCounts Database::swap_index_from(const std::filesystem::path& staging_path) {
  check_staging(staging_path, db_path);
  RowCounts counts;
  {
    const std::lock_guard guard(_lock);
    const std::shared_ptr<Connection> writer = connection();
    const Attachment attachment(*writer, staging_path);
    counts = _replace_contents(*writer);
  }
  log_line(LogUnit::Database, LogLevel::Info,
           "swap_index_from: replaced live index from " + staging_path.string() +
               " (rows inserted: " + describe(counts) + ")");
  compact();
  return counts;
}

RowCounts Database::_replace_contents(Connection& writer) {
  assert(_lock.held_by_this_thread());
  const auto columns = live_columns(writer);
  const ScopedPragma large_cache(writer, "cache_size", SWAP_CACHE_SIZE);
  const FastDelete fast_delete(writer);
  RowCounts counts;
  transaction([&](Cursor& cursor) {
    cursor.execute(TAKE_WRITE_LOCK);
    const bool both_have_chunks = _empty_code_chunks(cursor) && _has_code_chunks(cursor, "stg");
    // Keeping an index up to date row by row costs more than making it once from all rows.
    const std::vector<Index> indexes = plain_indexes(cursor);
    rename_statistics(cursor, "'kept ' || idx");
    drop(cursor, indexes);
    delete_all(cursor);
    for (std::size_t i = 0; i < FILLING_ORDER.size(); ++i) {
      const std::string_view table = FILLING_ORDER[i];
      cursor.execute(concat(
          {"INSERT INTO ", table, " (", columns[i], ") SELECT ", columns[i], " FROM stg.", table}));
      counts.add(table, inserted(cursor));
    }
    for (const Index& index : indexes) cursor.execute(index.sql);
    rename_statistics(cursor, "substr(idx, length('kept ') + 1)");
    if (both_have_chunks) counts.add("code_chunks", copy_chunks(cursor));
    _bump_index_generation(&cursor);
  });
  return counts;
}

bool _has_code_chunks(Cursor& cursor, std::string_view schema) {
  cursor.execute(concat(
      {"SELECT 1 FROM ", schema, ".sqlite_master WHERE type = 'table' AND name = 'code_chunks'"}));
  return cursor.fetchone().has_value();
}

bool _empty_code_chunks(Cursor& cursor) {
  if (!_has_code_chunks(cursor)) return false;
  // Deleting the rows of a full-text table would tokenise each of them again.
  cursor.execute("DROP TABLE code_chunks");
  run_ddl(cursor, CODE_CHUNKS_DDL);
  return true;
}

}  // namespace veldra
