#pragma once

#include <filesystem>
#include <functional>

#include "veldra/storage/database.h"

namespace veldra::tool {

/// A file with the index's tables that a rebuild fills and then swaps in; removed when destroyed.
///
/// Built for speed: nothing is synced and nothing can be rolled back, since its loss costs nothing;
/// no secondary indexes, and `code_chunks` as a plain table, since the swap makes the live file's
/// own anew; foreign keys are checked by the swap.
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
};

}  // namespace veldra::tool
