#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>

#include "veldra/export.h"
#include "veldra/storage/database.h"

namespace veldra {

/// Opens the indexes of many repositories on demand and keeps a bounded number of them open.
///
///     DatabaseCache cache(256);
///     const std::shared_ptr<Database> index = cache.open(repository / INDEX);
///     index->fetchall("SELECT path FROM files");
///
/// While anyone holds what `open` returned, the same file is the same object, by whatever path or
/// symbolic link it is asked for; hard links are different files. What nobody holds stays open for
/// the next who asks, until there are too many: then those that were given back longest ago are
/// closed. One that is held is never closed, so more than the bound can be open.
///
/// What nobody has held for a minute gives memory back, one database at each `open` of any file: it
/// keeps one read connection, and that and its writer empty their page caches.
///
/// Thread safety: any member but destruction, from any thread. One mutex guards the table and is
/// never held while a file is opened or closed: opening one makes nobody wait who asks for another.
/// Ownership: shared by the cache and its holders. Destroying the cache closes what nobody holds;
/// the rest closes when it is given back.
/// Errors: those of `Database::connect`, `create_schema` and `migrate_schema`, to every thread that
/// asked for the file meanwhile; the next call tries again.
class VELDRA_EXPORT DatabaseCache {
 public:
  /// Opens nothing. Throws `ProgrammingError` unless `max_open` is 1 or more.
  explicit DatabaseCache(std::size_t max_open);
  DatabaseCache(const DatabaseCache&) = delete;
  DatabaseCache& operator=(const DatabaseCache&) = delete;
  ~DatabaseCache();

  /// The database of the file, connected, its schema created and migrated; `db_path` is its
  /// absolute path without links. One that a holder has closed, or whose file was removed or
  /// replaced, is opened anew, as another object; the old one is its holders' alone then. Who
  /// replaces a file removes its `-wal` too: SQLite would apply it to the next one of that name
  /// (https://www.sqlite.org/howtocorrupt.html).
  ///
  /// Throws `ProgrammingError` for `:memory:`, `RuntimeError` "The database cache is closed." after
  /// `close`, also when that comes while the file is being opened.
  std::shared_ptr<Database> open(const std::filesystem::path& db_path);

  /// How many are open, held or not.
  std::size_t size() const;

  /// Closes all, also those that are held: waits for their queries and transactions. May be
  /// repeated. Throws the first `Error` of a database that SQLite did not close, after the rest.
  void close();

 private:
  friend struct DatabaseTestAccess;
  class Table;

  DatabaseCache(std::size_t max_open, std::chrono::milliseconds idle_time);

  std::shared_ptr<Table> _table;  // shared with what is held, which is given back to it
};

}  // namespace veldra
