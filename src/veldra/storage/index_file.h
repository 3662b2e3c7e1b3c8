#pragma once

#include <sys/types.h>

#include <filesystem>
#include <utility>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// Which file a writer connection has open: its name at that moment and the file behind it.
/// Internal.
///
/// The name is SQLite's own, absolute and without links, so it means the same file after a `chdir`
/// or when a link on the way is switched. A file that is removed or replaced under a connection
/// keeps working for it, and what is written there is lost
/// (https://www.sqlite.org/howtocorrupt.html#_unlinking_or_renaming_a_database_file_while_in_use):
/// whoever is about to write, or opens the name anew, asks first.
///
/// Thread safety: immutable.
class IndexFile {
 public:
  /// Of a connection that was just opened by the name `given`, which stays the name of a database
  /// in memory.
  IndexFile(const Connection& writer, const std::filesystem::path& given);

  const std::filesystem::path& path() const noexcept { return _path; }

  /// False when another file, or none, has the name now. One look at the directory, no lock. True
  /// for a file that the system does not show under its name (in memory, or of a VFS of the
  /// host's).
  bool is_in_place() const;

  /// Throws `OperationalError` when it is not in place.
  void require_in_place() const;

 private:
  std::filesystem::path _path;
  bool _is_watched = false;
  std::pair<dev_t, ino_t> _identity;
};

}  // namespace veldra
