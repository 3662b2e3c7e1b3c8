#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "veldra/storage/database.h"

namespace veldra::tool {

/// A file with the index's tables that a rebuild fills and then swaps in; removed when destroyed.
///
/// Built for speed: nothing is synced and nothing can be rolled back, since its loss costs nothing;
/// foreign keys are checked by the swap. It has all that an index has, the full text written while
/// files are parsed and the secondary indexes made at the end, so that the swap only copies.
class StagingFile {
 public:
  /// Removes what an earlier process left at `path`.
  explicit StagingFile(const std::filesystem::path& path);
  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;
  ~StagingFile() = default;

  /// Runs `body` in one transaction and closes the file, complete. Once.
  void fill(const std::function<void(Cursor&)>& body);

 private:
  /// Removes the file and what belongs to it, at first and at last: also when filling it fails.
  class Removal {
   public:
    explicit Removal(std::filesystem::path path);
    Removal(const Removal&) = delete;
    Removal& operator=(const Removal&) = delete;
    ~Removal();

   private:
    void _remove() const noexcept;

    const std::filesystem::path _path;
  };

  const Removal _removal;  // first: the database is closed before its file goes
  Database _database;
  std::vector<Row> _indexes;  // as the statements that drop and make them
};

}  // namespace veldra::tool
