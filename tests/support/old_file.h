#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "support/temp_database.h"
#include "veldra/sqlite/connection.h"

namespace veldra {

/// Makes a file as the first release did: version 1, pages of 1,024 bytes, no auto-vacuum, WAL,
/// with `files` files and two symbols, an edge, an import and an error record for each.
inline void make_old_file(const std::filesystem::path& path, int files) {
  Connection connection(path);
  connection.execute("CREATE TEMP TABLE n (i INTEGER PRIMARY KEY)");
  for (int i = 0; i < files; ++i) connection.execute("INSERT INTO n DEFAULT VALUES");
  static constexpr const char* SCRIPT = R"sql(
PRAGMA page_size = 1024;
PRAGMA auto_vacuum = NONE;
PRAGMA journal_mode = WAL;
CREATE TABLE schema_info (key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE components (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, path TEXT);
CREATE TABLE files (id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, language TEXT NOT NULL,
  hash TEXT NOT NULL, size INTEGER, component_id INTEGER REFERENCES components (id));
CREATE TABLE symbols (id INTEGER PRIMARY KEY, file_id INTEGER NOT NULL REFERENCES files (id)
  ON DELETE CASCADE, name TEXT NOT NULL, fqn TEXT, kind TEXT NOT NULL, start_line INTEGER,
  end_line INTEGER);
CREATE TABLE edges (id INTEGER PRIMARY KEY, source_id INTEGER NOT NULL, target_id INTEGER NOT NULL,
  kind TEXT NOT NULL, line INTEGER);
CREATE TABLE external_imports (id INTEGER PRIMARY KEY, file_id INTEGER, module TEXT NOT NULL,
  line INTEGER);
CREATE TABLE index_errors (id INTEGER PRIMARY KEY, file_path TEXT NOT NULL,
  error_type TEXT NOT NULL, message TEXT);
INSERT INTO schema_info VALUES ('version', '1'), ('last_index', 'yesterday');
INSERT INTO components VALUES (1, 'core', 'src');
INSERT INTO files SELECT i, 'src/f' || i, iif(i % 2, 'C++', 'Go'), 'hash' || i, i, 1 FROM n;
INSERT INTO symbols SELECT 2 * i, i, 'f' || i, NULL, 'anchor', 1, 9 FROM n;
INSERT INTO symbols SELECT 2 * i + 1, i, 'g' || i, 'a.g', 'function', 2, 3 FROM n;
INSERT INTO edges SELECT i, 2 * i, 2 * i + 1, 'calls', i FROM n;
INSERT INTO external_imports SELECT i, i, 'os', 1 FROM n;
INSERT INTO index_errors SELECT i, 'src/f' || i, 'parse_error', 'line ' || i FROM n;
)sql";
  EXPECT_EQ(sqlite3_exec(connection.handle(), SCRIPT, nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(connection.handle());
}

/// Every row of the columns that version 1 had, but for `files.hash`: what no migration may change.
inline constexpr std::string_view OLD_ROWS =
    "SELECT 'c', id, name, path FROM components UNION ALL"
    " SELECT 'f', id, path, language || size || component_id FROM files UNION ALL"
    " SELECT 's', id, file_id, name || ifnull(fqn, '') || kind || start_line FROM symbols UNION ALL"
    " SELECT 'e', source_id, target_id, kind || line FROM edges UNION ALL"
    " SELECT 'i', id, file_id, module FROM external_imports UNION ALL"
    " SELECT 'x', id, file_path, error_type || message FROM index_errors";

/// Opens `path` beside everything else and runs `sql`, as another process would; what it gave.
inline std::string as_another_process(const std::filesystem::path& path, std::string_view sql) {
  Connection other(path);
  return dump(other, sql);
}

}  // namespace veldra
