// The lock of whoever builds an index.
#include "veldra-index/index/build_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>

#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

std::string message_of(int error) {
  return std::generic_category().message(error);
}

/// What the holder of the lock wrote into it.
std::string holder(int fd) {
  std::array<char, 32> digits{};
  const ssize_t count = ::pread(fd, digits.data(), digits.size() - 1, 0);
  const std::string pid(digits.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  return pid.empty() ? "another process" : "process " + pid;
}

bool is_same_file(int fd, const fs::path& path) {
  struct stat open_file {};
  struct stat named_file {};
  return ::fstat(fd, &open_file) == 0 && ::stat(path.c_str(), &named_file) == 0 &&
         open_file.st_ino == named_file.st_ino && open_file.st_dev == named_file.st_dev;
}

}  // namespace

BuildLock::BuildLock(const IndexPlace& place) : _path(place.lock()) {
  make_folder(place);
  do {  // again when its last holder removed it between the opening and the lock
    _file = FileDescriptor(::open(_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (_file.get() < 0) {
      throw Failure("cannot write in " + _path.parent_path().string() + ": " + message_of(errno) +
                    "; name another place with --db FILE");
    }
    if (::flock(_file.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK)
        throw Failure("cannot lock " + _path.string() + ": " + message_of(errno));
      throw Failure(holder(_file.get()) + " is building this index; wait for it, or end it");
    }
  } while (!is_same_file(_file.get(), _path));
  const std::string pid = std::to_string(::getpid());
  if (::ftruncate(_file.get(), 0) != 0 || ::pwrite(_file.get(), pid.data(), pid.size(), 0) < 0) {
    // Only the message of whoever comes meanwhile is poorer.
  }
}

BuildLock::~BuildLock() {
  ::unlink(_path.c_str());  // while the lock is held
}

}  // namespace veldra::tool
