#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>

/// What the layer asks the file system, behind one seam, so that a test can stand in a full disk or
/// a second volume.
///
///     const std::int64_t bytes = disk().file_size(db_path);
///
/// Internal.
/// Thread safety: every function, from any thread; a replacement must be as safe.
namespace veldra {

/// The file system as it is. A test derives from it and overrides what its scene needs.
///
/// Nothing here opens the file asked about: closing any descriptor of a database file would drop
/// the process's locks on it
/// (https://www.sqlite.org/howtocorrupt.html#_posix_advisory_locks_canceled_by_a_separate_thread_doing_close_).
/// Errors: `OSError` with errno, naming the path.
class Disk {
 public:
  Disk() = default;
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;
  virtual ~Disk();

  /// The size of a file in bytes, symbolic links followed.
  virtual std::int64_t file_size(const std::filesystem::path& path) const;

  /// Tells volumes apart: two paths with the same number lie on one device. Links are followed.
  virtual dev_t device(const std::filesystem::path& path) const;

  /// The bytes that an unprivileged process may still write to the volume that holds `directory`.
  virtual std::int64_t free_bytes(const std::filesystem::path& directory) const;

  /// The first directory that this process may write to among `TMPDIR`, `TEMP` and `TMP` of the
  /// environment, then /tmp, /var/tmp and /usr/tmp; otherwise the working directory.
  virtual std::filesystem::path temporary_directory() const;
};

/// The one in force: the real file system, unless a test replaced it.
const Disk& disk() noexcept;

/// Puts `replacement` in force for as long as the guard lives, for all threads.
class DiskReplacement {
 public:
  [[nodiscard]] explicit DiskReplacement(const Disk& replacement) noexcept;
  DiskReplacement(const DiskReplacement&) = delete;
  DiskReplacement& operator=(const DiskReplacement&) = delete;
  ~DiskReplacement();

 private:
  const Disk* _replaced;
};

}  // namespace veldra
