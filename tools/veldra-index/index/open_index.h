#pragma once

#include <filesystem>
#include <memory>

#include "veldra-index/tree/index_place.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

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

}  // namespace veldra::tool
