// File sizes, volumes, free space and the temporary directory, by stat, statvfs and access alone.
#include "veldra/platform/disk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <system_error>

#include "veldra/errors.h"

namespace veldra {

namespace {

const Disk& real_disk() noexcept {
  static const Disk real;
  return real;
}

std::atomic<const Disk*> replaced_disk = nullptr;

struct stat status_of(const std::filesystem::path& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0)
    throw_os_error({errno, std::generic_category()}, "cannot read the status of", path);
  return status;
}

bool is_writable_directory(const char* path) {
  struct stat status = {};
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode) &&
         ::faccessat(AT_FDCWD, path, W_OK | X_OK, AT_EACCESS) == 0;
}

}  // namespace

Disk::~Disk() = default;

std::int64_t Disk::file_size(const std::filesystem::path& path) const {
  return status_of(path).st_size;
}

dev_t Disk::device(const std::filesystem::path& path) const {
  return status_of(path).st_dev;
}

std::int64_t Disk::free_bytes(const std::filesystem::path& directory) const {
  struct statvfs volume = {};
  if (::statvfs(directory.c_str(), &volume) != 0)
    throw_os_error({errno, std::generic_category()}, "cannot read the free space of", directory);
  // A file system that calls itself unlimited must not wrap around to a full one.
  static constexpr auto MOST = std::numeric_limits<std::int64_t>::max();
  std::int64_t bytes = 0;
  return __builtin_mul_overflow(volume.f_bavail, volume.f_frsize, &bytes) ? MOST : bytes;
}

std::filesystem::path Disk::temporary_directory() const {
  for (const char* variable : {"TMPDIR", "TEMP", "TMP"}) {
    const char* directory = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): only read here
    if (directory != nullptr && is_writable_directory(directory)) return directory;
  }
  for (const char* directory : {"/tmp", "/var/tmp", "/usr/tmp"})
    if (is_writable_directory(directory)) return directory;
  std::error_code unknown;
  std::filesystem::path working = std::filesystem::current_path(unknown);
  return unknown ? "." : working;
}

const Disk& disk() noexcept {
  const Disk* replaced = replaced_disk.load();
  return replaced != nullptr ? *replaced : real_disk();
}

DiskReplacement::DiskReplacement(const Disk& replacement) noexcept
    : _replaced(replaced_disk.exchange(&replacement)) {}

DiskReplacement::~DiskReplacement() {
  replaced_disk.store(_replaced);
}

}  // namespace veldra
