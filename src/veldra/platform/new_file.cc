// Making, locking, syncing and renaming the file, and removing what the dead left.
#include "veldra/platform/new_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "veldra/errors.h"

namespace veldra {
namespace {

namespace fs = std::filesystem;

std::error_code last_error() {
  return {errno, std::generic_category()};
}

fs::path directory_of(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : ".";
}

class Descriptor {
 public:
  Descriptor(const fs::path& path, int flags) noexcept
      : _number(::open(path.c_str(), flags | O_CLOEXEC)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (_number >= 0) ::close(_number);
  }
  int get() const noexcept { return _number; }

 private:
  int _number;
};

/// True when the file open as `descriptor` is still the one at `path`.
bool is_at(int descriptor, const fs::path& path) {
  struct stat open {
  }, there{};
  return ::fstat(descriptor, &open) == 0 && ::stat(path.c_str(), &there) == 0 &&
         open.st_dev == there.st_dev && open.st_ino == there.st_ino;
}

void sync(int descriptor, const fs::path& path) {
  if (::fsync(descriptor) != 0) throw_os_error(last_error(), "cannot sync", path);
}

/// Removes the files in `directory` whose name begins with `prefix` and that nobody holds. Another
/// process may remove the same, so that only the new file counts. Not by std::filesystem, whose
/// iterator ends the process where it gets no memory (libstdc++ 12).
void remove_what_the_dead_left(const fs::path& directory, const std::string& prefix) {
  const std::unique_ptr<DIR, int (*)(DIR*)> names(::opendir(directory.c_str()), &::closedir);
  while (const dirent* const entry = names ? ::readdir(names.get()) : nullptr) {
    if (!std::string_view(entry->d_name).starts_with(prefix)) continue;
    const fs::path path = directory / entry->d_name;
    const Descriptor file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (file.get() >= 0 && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(path.c_str());
  }
}

}  // namespace

NewFile::NewFile(const fs::path& path) : _name(path) {
  static std::atomic<unsigned> made = 0;
  const std::string prefix = path.filename().string() + ".new-";
  remove_what_the_dead_left(directory_of(path), prefix);
  do {
    const std::string name = prefix + std::to_string(::getpid()) + "-" + std::to_string(++made);
    _path = directory_of(path) / name;
  } while (!_make(_path));
}

/// False when another has the name, or took the file for one of the dead before it was locked.
bool NewFile::_make(const fs::path& path) {
  _descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (_descriptor < 0 && errno != EEXIST) throw_os_error(last_error(), "cannot create", path);
  if (_descriptor >= 0 && ::flock(_descriptor, LOCK_EX | LOCK_NB) == 0 && is_at(_descriptor, path))
    return true;
  if (_descriptor >= 0) ::close(std::exchange(_descriptor, -1));
  return false;
}

NewFile::~NewFile() {
  if (!_published) ::unlink(_path.c_str());
  ::close(_descriptor);
}

void NewFile::start_writing() const noexcept {
  // What it does not do is left to `publish`, which is also told of an error of the disk.
  (void)::sync_file_range(_descriptor, 0, 0, SYNC_FILE_RANGE_WRITE);
}

std::int64_t NewFile::publish() {
  sync(_descriptor, _path);
  struct stat status {};
  if (::fstat(_descriptor, &status) != 0)
    throw_os_error(last_error(), "cannot read the status of", _path);
  if (::rename(_path.c_str(), _name.c_str()) != 0)
    throw_os_error(last_error(), "cannot put a new file in the place of", _name);
  _published = true;
  const fs::path directory = directory_of(_name);
  const Descriptor open(directory, O_RDONLY | O_DIRECTORY);
  if (open.get() < 0) throw_os_error(last_error(), "cannot open", directory);
  sync(open.get(), directory);
  return status.st_size;
}

}  // namespace veldra
