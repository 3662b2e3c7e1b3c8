// Whether the name still means the file that was opened.
#include "veldra/storage/index_file.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <optional>

#include "veldra/errors.h"

namespace veldra {
namespace {

std::optional<std::pair<dev_t, ino_t>> identity_of(const std::filesystem::path& path) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0) return std::nullopt;
  return std::pair(found.st_dev, found.st_ino);
}

}  // namespace

IndexFile::IndexFile(const Connection& writer, const std::filesystem::path& given) : _path(given) {
  sqlite3* const db = writer.handle();
  const char* const name = sqlite3_db_filename(db, "main");
  if (name == nullptr || *name == '\0') return;
  _path = name;
  const auto identity = identity_of(_path);
  if (!identity) return;
  // What was looked at is what SQLite has open, unless it was replaced in between.
  int moved = 0;
  sqlite3_file_control(db, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  _is_watched = true;
  if (moved == 0) _identity = *identity;
}

bool IndexFile::is_in_place() const {
  return !_is_watched || identity_of(_path) == _identity;
}

void IndexFile::require_in_place() const {
  if (!is_in_place())
    throw OperationalError("the index file was removed or replaced: close and connect again");
}

}  // namespace veldra
