// The staging file of a rebuild.
#include "veldra-index/index/staging_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "veldra-index/process/file_descriptor.h"
#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

constexpr std::string_view PRAGMAS[] = {
    "PRAGMA journal_mode = OFF", "PRAGMA synchronous = OFF",   "PRAGMA locking_mode = EXCLUSIVE",
    "PRAGMA foreign_keys = OFF", "PRAGMA cache_size = -16384",
};

/// While indexes are made: SQLite sorts the keys of as much as the page cache may hold, and then
/// merges these parts. What fits into a processor's cache is sorted in less time.
constexpr std::string_view SORTING_CACHE = "PRAGMA cache_size = -2048";

/// Every secondary index that is not part of a table's declaration: what drops it, what makes it.
constexpr std::string_view INDEXES =
    "SELECT 'DROP INDEX \"' || replace(name, '\"', '\"\"') || '\"', sql FROM sqlite_master"
    " WHERE type = 'index' AND sql IS NOT NULL";

/// More of the full-text index is gathered before a segment of it is written, and more segments
/// before they are merged; few enough for later small writes not to wait for a merge
/// (https://www.sqlite.org/fts5.html#automerge; the other option stands in FTS5's source alone).
constexpr std::string_view FULL_TEXT_OPTIONS =
    "INSERT INTO code_chunks (code_chunks, rank) VALUES ('hashsize', 2097152), ('automerge', 8)";

/// What tells a finished staging file from an index: FTS5's own defaults, the generation that a
/// swap into an empty file would give, and the journal.
constexpr std::string_view FINISHING_TOUCHES[] = {
    "INSERT INTO code_chunks (code_chunks, rank) VALUES ('hashsize', 1048576), ('automerge', 4)",
    "PRAGMA user_version = 1",
    "PRAGMA journal_mode = WAL",
};

void sync(const std::filesystem::path& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0 || ::fsync(file.get()) != 0) {
    throw Failure("cannot sync " + path.string() + ": " + std::generic_category().message(errno) +
                  "; look at the disk");
  }
}

/// A journal that an index which is gone has left: SQLite would apply it to the next one of that
/// name. It deletes one beside a file that it makes itself
/// (https://www.sqlite.org/howtocorrupt.html).
bool has_journal(const std::filesystem::path& index) {
  for (const char* suffix : {"-journal", "-wal"}) {
    std::filesystem::path journal = index;
    journal += suffix;
    struct stat status {};
    if (::lstat(journal.c_str(), &status) == 0) return true;
  }
  return false;
}

}  // namespace

void StagingFile::remove(const std::filesystem::path& path) noexcept {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
    std::filesystem::path file = path;
    file += suffix;
    std::error_code error;
    std::filesystem::remove(file, error);  // what cannot be removed is found by the next rebuild
  }
}

StagingFile::StagingFile(const std::filesystem::path& path, const ExtractorVersions& versions)
    : _path(path), _removal(path), _database(path) {
  _database.connect();
  _database.create_schema();
  _database.refresh_extractor_stamp(versions);
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
    cursor.execute(SORTING_CACHE);
    // Made once from all rows: keeping them up to date row by row costs more.
    for (const Row& index : _indexes) cursor.execute(index[1].as_text());
  });
}

void StagingFile::start_writing() {
  _file = FileDescriptor(::open(_path.c_str(), O_RDONLY | O_CLOEXEC));
  // What it does not do is left to `publish`, which is also told of an error of the disk.
  _writing = std::jthread(
      [file = _file.get()] { (void)::sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE); });
}

bool StagingFile::publish(const std::filesystem::path& path) {
  if (has_journal(path)) return false;
  for (const std::string_view touch : FINISHING_TOUCHES) _database.execute(touch).close();
  close();
  sync(_path);
  if (::renameat2(AT_FDCWD, _path.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0)
    return false;
  sync(path.parent_path());
  return true;
}

void StagingFile::close() {
  _database.close();
}

}  // namespace veldra::tool
