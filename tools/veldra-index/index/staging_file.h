#pragma once

#include <filesystem>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "veldra-index/process/file_descriptor.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

/// A file with the index's tables that a rebuild fills; then it becomes the index, or is swapped
/// in. Removed when destroyed, unless it has become the index.
///
///     StagingFile staging(place.staging(), versions);
///     staging.fill([&](Cursor& cursor) { … });
///     if (!staging.publish(place.db)) {
///       staging.close();
///       index.swap_index_from(place.staging(), StagingTrust::Vouched);
///     }
///
/// Built for speed: nothing is synced and nothing can be rolled back, since its loss costs nothing;
/// foreign keys are not checked, since the writer gives every id itself. It has all that an index
/// has, the full text written while files are parsed and the secondary indexes made at the end, so
/// that a swap only copies.
class StagingFile {
 public:
  /// Removes what an earlier process left at `path`. `versions` are what the files will be parsed
  /// by.
  StagingFile(const std::filesystem::path& path, const ExtractorVersions& versions);
  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;
  ~StagingFile() = default;

  /// Runs `body` in one transaction; the file is complete then. Once.
  void fill(const std::function<void(Cursor&)>& body);

  /// Has the disk write what is in the file by now, without waiting for it. For the end of a `body`
  /// whose file is to be published: then less is left for the sync.
  void start_writing();

  /// Makes the file the index at `path`, of generation 1 and synced, in one step that another
  /// process sees whole or not at all. False when that name, or that of a journal of it, is taken:
  /// then what has it stays, and a swap is the way. So it is where the file system cannot give a
  /// name without taking it from another. Throws `Failure` when the disk cannot sync.
  bool publish(const std::filesystem::path& path);

  void close();

  /// Removes the file and what belongs to it: what a process has left that was killed. For who
  /// holds the `BuildLock`.
  static void remove(const std::filesystem::path& path) noexcept;

 private:
  /// Removes the file at first and at last: also when filling it fails.
  class Removal {
   public:
    explicit Removal(std::filesystem::path path) : _path(std::move(path)) { remove(_path); }
    Removal(const Removal&) = delete;
    Removal& operator=(const Removal&) = delete;
    ~Removal() { remove(_path); }

   private:
    const std::filesystem::path _path;
  };

  const std::filesystem::path _path;
  const Removal _removal;  // first: the database is closed before its file goes
  FileDescriptor _file;    // closed after the database, which would lose its locks
  std::jthread _writing;   // uses the file
  Database _database;
  std::vector<Row> _indexes;  // as the statements that drop and make them
};

}  // namespace veldra::tool
