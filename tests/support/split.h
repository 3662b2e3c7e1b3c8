#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

namespace veldra {

/// The parts of `text` between separators: a table's row that stands for several cases.
inline std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t end = std::min(text.find(separator), text.size());
    parts.push_back(text.substr(0, end));
    if (end == text.size()) return parts;
    text.remove_prefix(end + separator.size());
  }
}

}  // namespace veldra
