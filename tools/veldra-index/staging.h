#pragma once

#include <filesystem>
#include <functional>
#include <memory>

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
  explicit StagingFile(std::filesystem::path path);
  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;
  ~StagingFile();

  /// Runs `body` in one transaction and closes the file, complete. Once.
  void fill(const std::function<void(Cursor&)>& body);

 private:
  void _remove() noexcept;

  const std::filesystem::path _path;
  std::unique_ptr<Database> _database;
};

}  // namespace veldra::tool
