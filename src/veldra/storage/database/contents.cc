// Emptying the index.
#include <algorithm>

#include "veldra/sqlite/held_statement.h"
#include "veldra/sqlite/pragma.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/migrations.h"
#include "veldra/storage/schema_info.h"

namespace veldra {

void Database::clear_all() {
  std::string line;
  {
    const Holding holding(*this, "clear_all");
    const std::shared_ptr<Connection> writer = connection();
    const FastDelete fast_delete(*writer);
    const auto clear = [&](Cursor& cursor) {
      take_write_lock(cursor);
      RowCounts removed;
      for (const std::string_view table : CLEARING_ORDER) {
        cursor.execute("SELECT COUNT(*) FROM " + std::string(table));
        const std::optional<Row> row = cursor.fetchone();
        removed.add(table, row ? (*row)[0].as_integer() : 0);
      }
      _empty_code_chunks(cursor);
      _delete_index_rows(cursor);
      line = "clear_all: cleared all index data (rows removed: " + _describe(removed) + ")";
    };
    naming_held_statement(*writer, [&] { transaction(clear); });
  }
  log_line(LogUnit::Database, LogLevel::Info, line);
}

void _delete_index_rows(Cursor& cursor) {
  for (const std::string_view table : CLEARING_ORDER)
    cursor.execute("DELETE FROM " + std::string(table));
}

std::string _describe(const RowCounts& counts) {
  std::string text = "{";
  for (const auto& [table, count] : counts) {
    if (text.size() > 1) text += ", ";
    text.append("'").append(table).append("': ").append(std::to_string(count));
  }
  return text + "}";
}

bool _has_code_chunks(Cursor& cursor, std::string_view schema) {
  cursor.execute("SELECT 1 FROM " + std::string(schema) +
                 ".sqlite_master WHERE type = 'table' AND name = 'code_chunks'");
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
