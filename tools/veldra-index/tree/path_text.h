#pragma once

#include <string_view>

namespace veldra::tool {

/// The part behind the last slash.
inline std::string_view file_name_of(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

/// The part before the last slash; empty for a file in the root.
inline std::string_view folder_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

/// The file name's last dot and what is behind it; empty when it has none.
inline std::string_view extension_of(std::string_view path) {
  const std::string_view name = file_name_of(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? std::string_view() : name.substr(dot);
}

}  // namespace veldra::tool
