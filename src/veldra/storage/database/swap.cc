// Replacing the index as a whole from a staging file: tree by tree, or row by row.
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "veldra/sqlite/held_statement.h"
#include "veldra/sqlite/pragma.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/schema_info.h"
#include "veldra/storage/staging_file.h"

namespace veldra {
namespace {

/// Parents before children.
constexpr std::array<std::string_view, 6> FILLING_ORDER = {
    "components", "files", "symbols", "edges", "external_imports", "index_errors"};

constexpr std::string_view COPY_CHUNKS =
    "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact) "
    "SELECT rowid, text, start_line, end_line, exact FROM stg.code_chunks";

/// What a full-text table consists of, its rows first. The fifth table holds nothing but options
/// (https://www.sqlite.org/fts5.html#fts5_data_structures).
constexpr std::array<std::string_view, 4> FULL_TEXT_TREES = {
    "code_chunks_content", "code_chunks_data", "code_chunks_docsize", "code_chunks_idx"};

/// 1 when both files declare the full-text table alike: it, and the five tables that FTS5 made.
constexpr std::string_view FULL_TEXT_DECLARED_ALIKE =
    "SELECT count(*) = 6 FROM main.sqlite_master JOIN stg.sqlite_master USING (type, name, sql) "
    "WHERE name IN ('code_chunks', 'code_chunks_content', 'code_chunks_data', "
    "'code_chunks_docsize', 'code_chunks_idx', 'code_chunks_config')";
constexpr std::string_view FULL_TEXT_VERSIONS_ALIKE =
    "SELECT count(*) FROM main.code_chunks_config JOIN stg.code_chunks_config USING (k, v) "
    "WHERE k = 'version'";

/// Makes SQLite read the schema again: the statistics of the indexes that were made anew, and FTS5
/// its index, which it would otherwise take for the empty one it made. Part of the transaction, so
/// that no write can come in between (https://www.sqlite.org/pragma.html#pragma_writable_schema).
constexpr std::string_view READ_SCHEMA_AGAIN = "PRAGMA writable_schema=RESET";

constexpr std::string_view FOREIGN_KEYS =
    "SELECT lower(child.name), lower(\"from\"), lower(\"table\"), lower(ifnull(\"to\", 'id')) "
    "FROM main.sqlite_master AS child, pragma_foreign_key_list(child.name, 'main') "
    "WHERE child.type = 'table'";

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
constexpr std::string_view SWAP_CACHE_SIZE = "-40960";

// The names in the statements below are those of the six tables, and of columns and indexes that
// the live file declares; SQLite binds values, not names.
std::string concat(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text.append(part);
  return text;
}

/// `name` as SQL. Between double quotes SQLite would take one that it does not find for a text
/// (https://www.sqlite.org/quirks.html#double_quoted_string_literals_are_accepted).
std::string name_in_sql(std::string_view name) {
  std::string quoted = "`";
  for (const char letter : name) quoted.append(letter == '`' ? 2 : 1, letter);
  return quoted + "`";
}

std::int64_t inserted(const Cursor& cursor) {
  return std::max<std::int64_t>(cursor.rowcount(), 0);
}

/// The staging file attached to the writer for a scope, and longer where SQLite cannot let it go.
class Attachment {
 public:
  Attachment(Connection& connection, const std::filesystem::path& staging_path)
      : _connection(connection) {
    connection.attach(staging_path, "stg");
  }
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;
  ~Attachment() { _connection.detach(); }

 private:
  Connection& _connection;
};

/// Foreign keys off for a scope, which a transaction lies in.
class ForeignKeysOff {
 public:
  explicit ForeignKeysOff(Connection& connection)
      : _connection(connection), _usual(connection.configure(SQLITE_DBCONFIG_ENABLE_FKEY, 0)) {}
  ForeignKeysOff(const ForeignKeysOff&) = delete;
  ForeignKeysOff& operator=(const ForeignKeysOff&) = delete;
  ~ForeignKeysOff() { _connection.configure(SQLITE_DBCONFIG_ENABLE_FKEY, _usual); }

  bool usually_on() const noexcept { return _usual != 0; }

 private:
  Connection& _connection;
  int _usual;
};

bool is_index_table(std::string_view name) {
  return std::ranges::find(CLEARING_ORDER, name) != CLEARING_ORDER.end();
}

/// True when a trigger that is not the layer's own stands on one of the six tables.
bool has_strangers_trigger(Connection& live) {
  // Not UNION ALL: where no temporary schema is open, naming it would open it.
  for (const Row& schema :
       live.fetchall("SELECT name FROM pragma_database_list WHERE name IN ('main', 'temp')")) {
    const std::string triggers =
        concat({"SELECT lower(tbl_name) FROM ", schema[0].as_text(),
                ".sqlite_master WHERE type = 'trigger' AND name <> 'files_delete_chunks'"});
    const std::vector<Row> tables = live.fetchall(triggers);
    if (std::ranges::any_of(tables, [](const Row& it) { return is_index_table(it[0].as_text()); }))
      return true;
  }
  return false;
}

/// The foreign keys that the live file declares among the six tables. None when another component's
/// trigger or key stands on one of them: what that does is the component's, row by row.
std::optional<std::vector<IndexKey>> keys_of_the_index_alone(Connection& live) {
  if (has_strangers_trigger(live)) return std::nullopt;
  std::vector<IndexKey> declared;
  for (const Row& row : live.fetchall(FOREIGN_KEYS)) {
    const std::string_view child = row[0].as_text(), parent = row[2].as_text();
    if (!is_index_table(child) && !is_index_table(parent)) continue;
    const auto* const known = std::ranges::find_if(INDEX_KEYS, [&](const IndexKey& key) {
      return key.child == child && key.column == row[1].as_text() && key.parent == parent;
    });
    if (known == INDEX_KEYS.end() || row[3].as_text() != "id") return std::nullopt;
    declared.push_back(*known);
  }
  return declared;
}

/// A table's columns as a list, and all that is declared of them.
struct Columns {
  std::string list;
  std::string declaration;
  bool are_plain = true;  // none is generated
};

Columns columns_of(Cursor& cursor, std::string_view table, std::string_view schema) {
  Columns columns;
  cursor.execute(
      "SELECT name, hidden, quote(type) || \"notnull\" || quote(dflt_value) || pk "
      "FROM pragma_table_xinfo(?, ?)",
      {table, schema});
  while (const std::optional<Row> column = cursor.fetchone()) {
    const std::string name = name_in_sql((*column)[0].as_text());
    columns.declaration += concat({name, (*column)[2].as_text(), ","});
    if ((*column)[1].as_integer() != 0) {
      columns.are_plain = false;
      continue;
    }
    columns.list += columns.list.empty() ? name : ", " + name;
  }
  return columns;
}

/// A table of the index, and how it is filled.
struct Table {
  std::string_view name;
  std::string columns;
  bool is_alike;  // in both files: then its trees are copied as they are
};

std::vector<Table> index_tables(Cursor& cursor) {
  std::vector<Table> tables;
  for (const std::string_view name : FILLING_ORDER) {
    Columns live = columns_of(cursor, name, "main");
    const bool is_alike =
        live.are_plain && live.declaration == columns_of(cursor, name, "stg").declaration;
    tables.push_back({.name = name, .columns = std::move(live.list), .is_alike = is_alike});
  }
  return tables;
}

std::string copy_of_rows(const Table& table) {
  return concat({"INSERT INTO ", table.name, " (", table.columns, ") SELECT ", table.columns,
                 " FROM stg.", table.name});
}

/// Without column lists SQLite copies the trees of the table and of the indexes that both files
/// have, once the live ones are empty, nothing fires and foreign keys are off. Where constraints or
/// indexes differ after all it goes by rows (the transfer optimization, insert.c in its source).
std::string copy_of_trees(const Table& table) {
  return concat({"INSERT INTO main.", table.name, " SELECT * FROM stg.", table.name});
}

/// What SQLite needs to make an index again.
struct Index {
  std::string name;
  std::string sql;
};

/// The live indexes that cannot be copied: those of tables that are not alike, and those that the
/// staging file lacks. Keeping them up to date row by row would cost more than making them anew.
std::vector<Index> indexes_to_make(Cursor& cursor, const std::vector<Table>& tables) {
  std::vector<Index> indexes;
  for (const Table& table : tables) {
    cursor.execute(
        "SELECT name, sql FROM main.sqlite_master AS live WHERE type = 'index' "
        "AND lower(tbl_name) = ? AND sql IS NOT NULL AND NOT (? AND EXISTS "
        "(SELECT 1 FROM stg.sqlite_master WHERE type = 'index' AND sql = live.sql)) ORDER BY rowid",
        {table.name, table.is_alike});
    while (const std::optional<Row> row = cursor.fetchone())
      indexes.push_back({std::string((*row)[0].as_text()), std::string((*row)[1].as_text())});
  }
  return indexes;
}

/// Gives the rows of ANALYZE's tables another index name, `idx` being the one they have: DROP INDEX
/// deletes those of its index, and nothing would bring them back.
void rename_statistics(Cursor& cursor, std::string_view new_name) {
  for (const std::string_view table : {"sqlite_stat1", "sqlite_stat4"}) {
    cursor.execute("SELECT 1 FROM main.sqlite_master WHERE name = ?", {table});
    if (cursor.fetchone()) cursor.execute(concat({"UPDATE main.", table, " SET idx = ", new_name}));
  }
}

void drop(Cursor& cursor, const std::vector<Index>& indexes) {
  if (indexes.empty()) return;
  rename_statistics(cursor, "'kept ' || idx");
  for (const Index& index : indexes)
    cursor.execute(concat({"DROP INDEX main.", name_in_sql(index.name)}));
}

void make(Cursor& cursor, const std::vector<Index>& indexes) {
  if (indexes.empty()) return;
  for (const Index& index : indexes) cursor.execute(index.sql);
  rename_statistics(cursor, "substr(idx, length('kept ') + 1)");
}

std::int64_t copy_full_text_trees(Cursor& cursor) {
  std::int64_t chunks = 0;
  for (const std::string_view tree : FULL_TEXT_TREES) {
    cursor.execute(concat({"DELETE FROM main.", tree}));
    cursor.execute(concat({"INSERT INTO main.", tree, " SELECT * FROM stg.", tree}));
    if (tree == FULL_TEXT_TREES.front()) chunks = inserted(cursor);
  }
  return chunks;
}

void set_options(Cursor& cursor, const FullTextOptions& options) {
  cursor.executemany("INSERT INTO code_chunks (code_chunks, rank) VALUES (?, ?)",
                     {{"hashsize", options.hashsize}, {"automerge", options.automerge}});
}

std::int64_t copy_full_text_rows(Cursor& cursor) {
  set_options(cursor, COPY_OPTIONS);
  cursor.execute(COPY_CHUNKS);
  const std::int64_t chunks = inserted(cursor);
  set_options(cursor, USUAL_OPTIONS);
  return chunks;
}

bool full_text_is_alike(Connection& writer) {
  const auto holds = [&](std::string_view sql) {
    return (*writer.fetchone(sql))[0].as_integer() != 0;
  };
  // A defensive connection may not write to the tables behind a full-text table.
  return writer.configure(SQLITE_DBCONFIG_DEFENSIVE, -1) == 0 && holds(FULL_TEXT_DECLARED_ALIKE) &&
         holds(FULL_TEXT_VERSIONS_ALIKE);
}

/// The statements that anyone would write: for what must be seen row by row.
RowCounts replace_rows(Cursor& cursor) {
  const bool both_have_chunks = _empty_code_chunks(cursor) && _has_code_chunks(cursor, "stg");
  const std::vector<Table> tables = index_tables(cursor);
  _delete_index_rows(cursor);
  RowCounts counts;
  for (const Table& table : tables) {
    cursor.execute(copy_of_rows(table));
    counts.add(table.name, inserted(cursor));
  }
  if (both_have_chunks) {
    cursor.execute(COPY_CHUNKS);
    counts.add("code_chunks", inserted(cursor));
  }
  return counts;
}

/// The same with foreign keys off: the keys of the staging file are those of the result, unless
/// the two declare a table differently.
RowCounts replace_trees(Connection& writer, Cursor& cursor, StagingFile& staging,
                        bool keys_are_enforced) {
  const auto keys = keys_of_the_index_alone(writer);
  if (!keys) throw_error(SQLITE_SCHEMA, sqlite3_errstr(SQLITE_SCHEMA));  // a stranger came just now
  const bool has_chunks = _has_code_chunks(cursor, "stg");  // from here on it sees one state
  staging.confirm();
  const bool both_have_chunks = _empty_code_chunks(cursor) && has_chunks;
  const std::vector<Table> tables = index_tables(cursor);
  const std::vector<Index> indexes = indexes_to_make(cursor, tables);

  drop(cursor, indexes);
  _delete_index_rows(cursor);
  RowCounts counts;
  for (const Table& table : tables) {
    cursor.execute(table.is_alike ? copy_of_trees(table) : copy_of_rows(table));
    counts.add(table.name, inserted(cursor));
  }
  make(cursor, indexes);

  const bool keys_hold = staging.keys_hold() && std::ranges::all_of(tables, &Table::is_alike);
  const auto broken = [&](const IndexKey& key) { return is_broken(writer, "main", key); };
  if (keys_are_enforced && !keys_hold && std::ranges::any_of(*keys, broken))
    throw_error(SQLITE_CONSTRAINT_FOREIGNKEY, "FOREIGN KEY constraint failed");

  if (both_have_chunks) {
    const bool as_trees = staging.full_text_is_sound() && full_text_is_alike(writer);
    counts.add("code_chunks",
               as_trees ? copy_full_text_trees(cursor) : copy_full_text_rows(cursor));
  }
  cursor.execute(READ_SCHEMA_AGAIN);
  return counts;
}

}  // namespace

RowCounts Database::swap_index_from(const std::filesystem::path& staging_path, StagingTrust trust) {
  look_for_staging_file(staging_path);
  (void)connection();  // that the database is open comes before what the file is
  refuse_wrong_staging_file(staging_path, db_path);
  RowCounts counts;
  std::string line;
  {
    StagingFile staging(staging_path, trust);
    const Holding holding(*this, "swap_index_from");
    const std::shared_ptr<Connection> writer = connection();
    counts = naming_held_statement(*writer, [&] {
      const Attachment attachment(*writer, staging_path);
      return _replace_contents(staging, [&](const RowCounts& inserted) {
        line = "swap_index_from: replaced live index from " + staging_path.string() +
               " (rows inserted: " + _describe(inserted) + ")";
      });
    });
  }
  try {
    log_line(LogUnit::Database, LogLevel::Info, line);
    compact();
  } catch (const std::bad_alloc&) {
    // The swap stands. Its line is lost, and the next index pass gives the pages back.
  }
  return counts;
}

RowCounts Database::_replace_contents(StagingFile& staging,
                                      const std::function<void(const RowCounts&)>& before_commit) {
  assert(_lock.held_by_this_thread());
  const std::shared_ptr<Connection> writer = connection();
  const ScopedPragma large_cache(*writer, "main.cache_size", SWAP_CACHE_SIZE);
  const FastDelete fast_delete(*writer);
  std::optional<ForeignKeysOff> keys_off;
  if (_tx_depth == 0 && keys_of_the_index_alone(*writer)) keys_off.emplace(*writer);
  RowCounts counts;
  transaction([&](Cursor& cursor) {
    take_write_lock(cursor);
    counts = keys_off ? replace_trees(*writer, cursor, staging, keys_off->usually_on())
                      : replace_rows(cursor);
    _bump_index_generation(&cursor);
    before_commit(counts);
  });
  return counts;
}

}  // namespace veldra
