// Statistics, the integrity check and the error records of files.
#include <string>

#include "veldra/models/symbol.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"

namespace veldra {

Statistics Database::get_stats() {
  Statistics stats;
  stats.add("files", _count("SELECT COUNT(*) FROM files"));
  stats.add("symbols", _count("SELECT COUNT(*) FROM symbols WHERE " + listed_sql()));
  stats.add("edges", _count("SELECT COUNT(*) FROM edges"));
  stats.add("components", _count("SELECT COUNT(*) FROM components"));
  stats.add("errors", _count("SELECT COUNT(*) FROM index_errors"));
  return stats;
}

bool Database::check_integrity() {
  const Holding holding(*this, "check_integrity");
  // A staging file that the caller's transaction still holds is no part of the index.
  const std::optional<Row> staging =
      connection()->fetchone("SELECT 1 FROM pragma_database_list WHERE name = 'stg'");
  const std::optional<Row> row =
      fetchone(staging ? "PRAGMA main.integrity_check" : "PRAGMA integrity_check");
  return row && (*row)[0].type() == StorageClass::Text && (*row)[0].as_text() == "ok";
}

void Database::record_error(std::string_view file_path, std::string_view error_type,
                            std::optional<std::string_view> message,
                            std::optional<std::int64_t> line) {
  execute("INSERT INTO index_errors (file_path, error_type, message, line) VALUES (?, ?, ?, ?)",
          {file_path, error_type, message, line});
}

void Database::clear_file_errors(std::string_view file_path,
                                 std::optional<std::string_view> error_type) {
  if (!error_type) {
    execute("DELETE FROM index_errors WHERE file_path = ?", {file_path});
  } else {
    execute("DELETE FROM index_errors WHERE file_path = ? AND error_type = ?",
            {file_path, *error_type});
  }
}

std::int64_t Database::get_error_count() {
  return _count("SELECT COUNT(DISTINCT file_path) FROM index_errors");
}

}  // namespace veldra
