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

/// Every secondary index that is not part of a table's declaration: what drops it, what makes it.
constexpr std::string_view INDEXES =
    "SELECT 'DROP INDEX \"' || replace(name, '\"', '\"\"') || '\"', sql FROM sqlite_master"
    " WHERE type = 'index' AND sql IS NOT NULL";

/// More of the full-text index is gathered before a segment of it is written, and more segments
/// before they are merged; few enough for later small writes not to wait for a merge
/// (https://www.sqlite.org/fts5.html#automerge; the other option stands in FTS5's source alone).
constexpr std::string_view FULL_TEXT_OPTIONS =
    "INSERT INTO code_chunks (code_chunks, rank) VALUES ('hashsize', 2097152), ('automerge', 8)";

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
  _database.transaction([this](Cursor& cursor) {
    cursor.execute(INDEXES);
    _indexes = cursor.fetchall();
    for (const Row& index : _indexes) cursor.execute(index[0].as_text());
    cursor.execute(FULL_TEXT_OPTIONS);
  });
}

void StagingFile::fill(const std::function<void(Cursor&)>& body) {
  _database.transaction([&](Cursor& cursor) {
    body(cursor);
    // Made once from all rows: keeping them up to date row by row costs more.
    for (const Row& index : _indexes) cursor.execute(index[1].as_text());
  });
  _database.close();
}

}  // namespace veldra::tool
