#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <utility>

#include "veldra/errors.h"
#include "veldra/platform/disk.h"

namespace veldra {

/// A disk of volumes as a test draws them, in force for as long as it lives. Sizes of files stay
/// real.
class FakeDisk : public Disk {
 public:
  struct Volume {
    dev_t device;
    std::int64_t free_bytes;
  };

  /// Directories without a volume are missing: asking for them fails with ENOENT.
  explicit FakeDisk(std::map<std::filesystem::path, Volume> volumes)
      : _volumes(std::move(volumes)), _in_force(*this) {}

  dev_t device(const std::filesystem::path& path) const override { return _volume(path).device; }
  std::int64_t free_bytes(const std::filesystem::path& directory) const override {
    return _volume(directory).free_bytes;
  }
  std::filesystem::path temporary_directory() const override { return "/fake/tmp/"; }

 private:
  const Volume& _volume(const std::filesystem::path& path) const {
    const auto found = _volumes.find(path);
    if (found == _volumes.end())
      throw_os_error(std::make_error_code(std::errc::no_such_file_or_directory), "no", path);
    return found->second;
  }

  std::map<std::filesystem::path, Volume> _volumes;
  DiskReplacement _in_force;  // last: nobody asks before the volumes are there
};

}  // namespace veldra
