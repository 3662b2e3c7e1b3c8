#pragma once

#include <unistd.h>

#include <utility>

namespace veldra::tool {

/// Owns an open file's descriptor, or none (-1).
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : _fd(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(_fd, other._fd);
    return *this;
  }
  ~FileDescriptor() {
    if (_fd >= 0) ::close(_fd);
  }

  int get() const { return _fd; }

 private:
  int _fd = -1;
};

}  // namespace veldra::tool
