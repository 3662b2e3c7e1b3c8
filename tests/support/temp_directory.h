#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace veldra {

/// A new empty directory; removed with all that is in it when the guard goes.
class TempDirectory {
 public:
  TempDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "veldra-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr)
      throw std::system_error(errno, std::generic_category(), name);
    _path = name;
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory() {
    std::error_code ignored;  // a test that fails may leave what cannot be removed
    std::filesystem::remove_all(_path, ignored);
  }

  const std::filesystem::path& path() const { return _path; }
  std::filesystem::path operator/(std::string_view name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

}  // namespace veldra
