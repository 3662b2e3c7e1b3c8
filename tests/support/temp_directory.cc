#include "support/temp_directory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace veldra {

TempDirectory::TempDirectory() {
  std::string name = std::filesystem::temp_directory_path() / "veldra-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), name);
  _path = name;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;  // a test that fails may leave what cannot be removed
  std::filesystem::remove_all(_path, ignored);
}

}  // namespace veldra
