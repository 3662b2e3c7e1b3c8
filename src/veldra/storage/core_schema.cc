// The tables of a new file.
#include "veldra/storage/core_schema.h"

#include <algorithm>
#include <vector>

#include "veldra/storage/schema_info.h"
#include "veldra/storage/schema_version.h"
#include "veldra/utils/ascii.h"

namespace veldra {

namespace {

struct Object {
  std::string_view type, name, ddl;
};

// Tables before what belongs to them. symbols.parent_id is no foreign key: a table that refers to
// itself is emptied in quadratic time without an index for it.
constexpr Object OBJECTS[] = {
    {"table", "schema_info", SCHEMA_INFO_DDL},
    {"table", "components",
     "CREATE TABLE components ("
     "id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, path TEXT NOT NULL)"},
    {"table", "files",
     "CREATE TABLE files ("
     "id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, language TEXT NOT NULL,"
     " hash TEXT NOT NULL, size INTEGER,"
     " component_id INTEGER REFERENCES components (id) ON DELETE SET NULL)"},
    {"table", "symbols",
     "CREATE TABLE symbols ("
     "id INTEGER PRIMARY KEY,"
     " file_id INTEGER NOT NULL REFERENCES files (id) ON DELETE CASCADE,"
     " name TEXT NOT NULL, fqn TEXT, kind TEXT NOT NULL,"
     " start_line INTEGER, end_line INTEGER, parent_id INTEGER)"},
    {"table", "edges",
     "CREATE TABLE edges ("
     "id INTEGER PRIMARY KEY,"
     " source_id INTEGER NOT NULL REFERENCES symbols (id) ON DELETE CASCADE,"
     " target_id INTEGER NOT NULL REFERENCES symbols (id) ON DELETE CASCADE,"
     " kind TEXT NOT NULL, line INTEGER)"},
    {"table", "external_imports",
     "CREATE TABLE external_imports ("
     "id INTEGER PRIMARY KEY, file_id INTEGER REFERENCES files (id) ON DELETE CASCADE,"
     " module TEXT NOT NULL, line INTEGER)"},
    {"table", "index_errors",
     "CREATE TABLE index_errors ("
     "id INTEGER PRIMARY KEY, file_path TEXT NOT NULL, error_type TEXT NOT NULL,"
     " message TEXT, line INTEGER)"},
    {"table", "code_chunks", CODE_CHUNKS_DDL},
    // For the foreign keys: deleting a parent looks for its children.
    {"index", "files_by_component", "CREATE INDEX files_by_component ON files (component_id)"},
    {"index", "symbols_by_file", "CREATE INDEX symbols_by_file ON symbols (file_id)"},
    {"index", "edges_by_source", "CREATE INDEX edges_by_source ON edges (source_id)"},
    {"index", "edges_by_target", "CREATE INDEX edges_by_target ON edges (target_id)"},
    {"index", "external_imports_by_file",
     "CREATE INDEX external_imports_by_file ON external_imports (file_id)"},
    // For queries: a symbol by its name, who imports a module, the errors of a file.
    {"index", "symbols_by_name", "CREATE INDEX symbols_by_name ON symbols (name)"},
    {"index", "external_imports_by_module",
     "CREATE INDEX external_imports_by_module ON external_imports (module)"},
    {"index", "index_errors_by_file",
     "CREATE INDEX index_errors_by_file ON index_errors (file_path)"},
    {"trigger", "files_delete_chunks", CHUNKS_TRIGGER_DDL},
};

}  // namespace

void create_tables(Cursor& cursor) {
  cursor.execute("SELECT type, name FROM sqlite_master");
  const std::vector<Row> existing = cursor.fetchall();
  const auto exists = [&](const Object& object) {
    return std::ranges::any_of(existing, [&](const Row& row) {
      return row[0].as_text() == object.type && equal_ignoring_case(row[1].as_text(), object.name);
    });
  };
  const bool is_new =
      std::ranges::none_of(existing, [](const Row& row) { return row[0].as_text() == "table"; });
  for (const Object& object : OBJECTS)
    if (!exists(object)) cursor.execute(object.ddl);
  if (is_new)
    cursor.execute("INSERT INTO schema_info (key, value) VALUES ('version', ?)", {SCHEMA_VERSION});
}

}  // namespace veldra
