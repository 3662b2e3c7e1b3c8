#pragma once

#include <filesystem>

#include "veldra-index/process/file_descriptor.h"
#include "veldra-index/tree/index_place.h"

namespace veldra::tool {

/// The right to build one index, held by one process at a time.
///
/// A lock on a file of its own beside the index; it goes with the process, however that ends.
class BuildLock {
 public:
  /// Throws `Failure` that names the process which holds it.
  explicit BuildLock(const IndexPlace& place);
  BuildLock(const BuildLock&) = delete;
  BuildLock& operator=(const BuildLock&) = delete;
  ~BuildLock();

 private:
  std::filesystem::path _path;
  FileDescriptor _file;
};

}  // namespace veldra::tool
