#include "support/whole_index.h"

#include "support/temp_database.h"

namespace veldra {
namespace {

constexpr std::string_view EVERY_TABLE =
    "SELECT printf('SELECT %Q, rowid, * FROM \"%w\" ORDER BY rowid', name, name), name"
    " FROM sqlite_master WHERE type = 'table' AND (name NOT LIKE 'sqlite_%' OR name = "
    "'sqlite_stat1')"
    " AND name NOT LIKE 'code\\_chunks\\_%' ESCAPE '\\' ORDER BY name";

// Ten files; the marked text is long enough for a chunk to fill several small pages.
constexpr std::string_view NUMBERS =
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10) ";
constexpr std::string_view ROWS[] = {
    ("INSERT INTO files (id, path, language, hash, size, component_id)"
     " SELECT i, 'src/f' || i, iif(i % 2, 'C++', 'Go'), ?, i, 1 FROM n"),
    "INSERT INTO symbols (id, file_id, name, kind) SELECT 2 * i, i, ?, 'anchor' FROM n",
    "INSERT INTO symbols (id, file_id, name, kind) SELECT 2 * i + 1, i, ?, 'function' FROM n",
    "INSERT INTO edges (id, source_id, target_id, kind) SELECT i, 2 * i, 2 * i + 1, ? FROM n",
    "INSERT INTO external_imports (id, file_id, module) SELECT i, i, ? FROM n",
    "INSERT INTO index_errors (file_path, error_type, message) SELECT 'f' || i, 'e', ? FROM n",
    ("INSERT INTO code_chunks (rowid, text, start_line, end_line, exact)"
     " SELECT i * 1048576, ? || ' int main_' || i || ' ' || hex(zeroblob(i * 60)), 1, 9, 1 FROM n"),
};

}  // namespace

void make_index(const std::filesystem::path& path, std::string_view mark) {
  Database db(path);
  db.connect();
  db.create_schema();
  db.transaction([&](Cursor& cursor) {
    cursor.execute("CREATE TABLE kept (id INTEGER PRIMARY KEY, who TEXT, what BLOB)");
    cursor.execute("INSERT INTO kept VALUES (1, 'the host', x'00ff')");
    cursor.execute("INSERT INTO components (id, name, path) VALUES (1, ?, 'src')", {mark});
    for (const std::string_view rows : ROWS)
      cursor.execute(std::string(NUMBERS).append(rows), {mark});
  });
  db.close();
}

FileState look_at(const std::filesystem::path& path) {
  Connection connection(path);
  FileState state;
  const auto add = [&](std::string_view sql) {
    state.content.append(dump(connection, sql)).append("\n");
  };
  add("PRAGMA user_version");
  add("SELECT type, name, sql FROM sqlite_master ORDER BY type, name");
  for (const Row& table : connection.execute(EVERY_TABLE).fetchall()) {
    add(table[0].as_text());
    if (table[1].as_text() != "code_chunks") continue;
    add("SELECT rowid FROM code_chunks WHERE code_chunks MATCH 'int' ORDER BY rowid");
    try {
      connection.execute("INSERT INTO code_chunks (code_chunks) VALUES ('integrity-check')");
    } catch (const Error& error) {
      state.damage = std::string("full-text index: ") + error.what();
    }
  }
  const std::string integrity = dump(connection, "PRAGMA integrity_check");
  if (integrity != "ok") state.damage += integrity;
  state.damage += dump(connection, "PRAGMA foreign_key_check");
  return state;
}

}  // namespace veldra
