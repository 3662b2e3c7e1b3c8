#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "veldra/storage/database.h"

namespace veldra::tool {

/// Where a repository is, its index and the files beside the index.
struct IndexPlace {
  std::filesystem::path root;  // absolute, without symbolic links
  std::filesystem::path db;    // absolute

  std::filesystem::path staging() const;  // what a rebuild makes
  std::filesystem::path lock() const;     // held by whoever builds

  /// True for a file (its path relative to the root) that is part of an index, by folder or name:
  /// nobody may open it, because closing any descriptor of a database drops its locks.
  bool owns(std::string_view path) const;
  bool owns_folder(std::string_view path) const;
};

/// The place of the index of `directory`: `db`, or memory/codebase-index/index.db below it.
/// Throws `Failure` when there is no such directory.
IndexPlace find_index(const std::filesystem::path& directory,
                      const std::optional<std::filesystem::path>& db);

/// An index that is open, and closed when destroyed.
class OpenIndex {
 public:
  /// Throws `Failure` when there is none ("no index here: run …").
  static OpenIndex existing(const IndexPlace& place);
  static OpenIndex existing_or_new(const IndexPlace& place);

  Database& operator*() { return *_database; }
  Database* operator->() { return _database.get(); }

 private:
  explicit OpenIndex(const std::filesystem::path& db);

  std::unique_ptr<Database> _database;
};

/// The right to build one index, held by one process at a time.
///
/// A lock on a file of its own beside the index; it goes with the process, however that ends.
class BuildLock {
 public:
  /// Throws `Failure` that names the process which holds it.
  explicit BuildLock(const IndexPlace& place);
  BuildLock(const BuildLock&) = delete;
  BuildLock& operator=(const BuildLock&) = delete;
  ~BuildLock();

 private:
  std::filesystem::path _path;
  int _fd = -1;
};

}  // namespace veldra::tool
