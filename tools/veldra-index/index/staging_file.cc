// The staging file of a rebuild.
#include "veldra-index/index/staging_file.h"

#include <string>
#include <system_error>

namespace veldra::tool {
namespace {

constexpr std::string_view PRAGMAS[] = {
    "PRAGMA journal_mode = OFF", "PRAGMA synchronous = OFF",   "PRAGMA locking_mode = EXCLUSIVE",
    "PRAGMA foreign_keys = OFF", "PRAGMA cache_size = -65536",
};

/// Statements that drop every secondary index that is not part of a table's declaration.
constexpr std::string_view DROP_INDEXES =
    "SELECT 'DROP INDEX \"' || replace(name, '\"', '\"\"') || '\"' FROM sqlite_master"
    " WHERE type = 'index' AND sql IS NOT NULL";

}  // namespace

StagingFile::Removal::Removal(std::filesystem::path path) : _path(std::move(path)) {
  _remove();
}

StagingFile::Removal::~Removal() {
  _remove();
}

void StagingFile::Removal::_remove() const noexcept {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
    std::filesystem::path file = _path;
    file += suffix;
    std::error_code error;
    std::filesystem::remove(file, error);  // what cannot be removed is found by the next rebuild
  }
}

StagingFile::StagingFile(const std::filesystem::path& path) : _removal(path), _database(path) {
  _database.connect();
  _database.create_schema();
  for (const std::string_view pragma : PRAGMAS) _database.execute(pragma).close();
  _database.transaction([](Cursor& cursor) {
    cursor.execute(DROP_INDEXES);
    for (const Row& row : cursor.fetchall()) cursor.execute(row[0].as_text());
    cursor.execute("DROP TABLE code_chunks");
    cursor.execute("CREATE TABLE code_chunks (text, start_line, end_line, exact)");
  });
}

void StagingFile::fill(const std::function<void(Cursor&)>& body) {
  _database.transaction(body);
  _database.close();
}

}  // namespace veldra::tool
