#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <thread>

#include "veldra/storage/database.h"
#include "veldra/storage/database_cache.h"
#include "veldra/storage/database_internal.h"

namespace veldra {

/// The private state of a `Database`, under the members' own names: to observe, rarely to set.
struct DatabaseTestAccess {
  static int tx_depth(const Database& db) { return db._tx_depth; }
  static std::thread::id tx_owner(const Database& db) { return db._tx_owner; }
  static std::shared_ptr<ReaderPool> readers(const Database& db) { return db._readers.load(); }
  static FairMutex& lock(Database& db) { return db._lock; }

  static DatabaseCache cache(std::size_t max_open, std::chrono::milliseconds idle_time) {
    return {max_open, idle_time};
  }

  static _Space space(Connection& connection) { return Database::_space(connection); }
  static void bump_index_generation(Database& db, Cursor* cursor = nullptr) {
    db._bump_index_generation(cursor);
  }
  static Compaction convert_to_incremental(Database& db, const _Space& space) {
    return db._convert_to_incremental(space);
  }
};

}  // namespace veldra
