#pragma once

#include <filesystem>
#include <string_view>

namespace veldra {

/// A new empty directory; removed with all that is in it when the guard goes.
class TempDirectory {
 public:
  TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  const std::filesystem::path& path() const { return _path; }
  std::filesystem::path operator/(std::string_view name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

}  // namespace veldra
