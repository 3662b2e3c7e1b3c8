#pragma once

#include <cstdint>
#include <filesystem>

namespace veldra {

/// A file that appears whole under its name or not at all: written under another name in the same
/// directory, synced, renamed, the directory synced.
///
///     NewFile file("copy.db");
///     … write to file.path() …
///     file.publish();
///
/// The other name is the file's own followed by ".new-PROCESS-NUMBER". Whoever makes one is the
/// holder of a lock on it (flock) until it is published or given up; a file of that pattern that
/// nobody holds was left by a process that died, and the next `NewFile` of the same name removes
/// it. Internal.
///
/// Thread safety: one thread at a time; any number of them for one name, also of other processes.
/// Errors: `OSError`; the file is then gone when the object is.
class NewFile {
 public:
  /// Makes an empty file beside `path`, which may exist; of its kind only a directory is refused.
  explicit NewFile(const std::filesystem::path& path);
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  /// Removes the file unless it was published.
  ~NewFile();

  /// Where to write to.
  const std::filesystem::path& path() const noexcept { return _path; }
  /// The file itself; stays open until the end.
  int descriptor() const noexcept { return _descriptor; }

  /// Has the disk write what is in the file by now, without waiting for it: then less is left for
  /// the sync.
  void start_writing() const noexcept;

  /// Puts the file under its name, in place of what has it; a link is replaced, not followed.
  /// Returns its size in bytes. What is written later may be lost.
  std::int64_t publish();

 private:
  bool _make(const std::filesystem::path& path);

  const std::filesystem::path _name;
  std::filesystem::path _path;
  int _descriptor = -1;
  bool _published = false;
};

}  // namespace veldra
