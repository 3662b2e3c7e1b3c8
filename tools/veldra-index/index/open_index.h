#pragma once

#include <filesystem>
#include <memory>

#include "veldra-index/tree/index_place.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

/// Throws `Failure` when there is no file ("no index here: run …") or it is another program's.
void check_is_index(const IndexPlace& place);

/// The release whose tables a file has: an older one's are brought up to this one's when it is
/// opened for writing, a newer one's can be read.
enum class Release { Older, This, Newer };
Release release_of(Connection& connection);

/// True for an error that says so of the index at `place`: pages that are malformed, or, at the
/// place that is an index's own, no database at all.
bool tells_of_damage(const Error& error, const IndexPlace& place);

/// Gives a damaged index the name with .damaged behind it, in place of an earlier one, and says so.
/// Throws `Failure` when it cannot.
void set_aside(const IndexPlace& place);

/// An index that is open, and closed when destroyed.
class OpenIndex {
 public:
  /// Throws as `check_is_index`, and `Failure` for a newer release's index.
  static OpenIndex existing(const IndexPlace& place);
  static OpenIndex existing_or_new(const IndexPlace& place);

  Database& operator*() { return *_database; }
  Database* operator->() { return _database.get(); }

 private:
  explicit OpenIndex(const std::filesystem::path& db);

  std::unique_ptr<Database> _database;
};

}  // namespace veldra::tool
