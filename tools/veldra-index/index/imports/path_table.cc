// Looking up the paths of a tree.
#include "veldra-index/index/imports/path_table.h"

#include <algorithm>
#include <filesystem>

#include "veldra-index/tree/path_text.h"

namespace veldra::tool {

PathTable::PathTable(const std::vector<std::string_view>& paths) : _paths(paths) {
  _by_path.reserve(paths.size());
  _by_file_name.reserve(paths.size());
  _by_folder.reserve(paths.size());
  for (std::size_t at = 0; at < paths.size(); ++at) {
    _by_path.emplace(paths[at], at);
    _by_file_name.emplace(file_name_of(paths[at]), at);
    _by_folder.emplace(folder_of(paths[at]), at);
  }
}

std::optional<std::size_t> PathTable::find(std::string_view path) const {
  const auto found = _by_path.find(path);
  return found == _by_path.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::size_t> PathTable::ending(std::string_view name) const {
  std::vector<std::size_t> found;
  const std::string behind_folder = "/" + std::string(name);
  const auto [first, last] = _by_file_name.equal_range(file_name_of(name));
  for (auto at = first; at != last; ++at)
    if (_paths[at->second] == name || _paths[at->second].ends_with(behind_folder))
      found.push_back(at->second);
  return found;
}

std::vector<std::size_t> PathTable::in_folder(std::string_view folder) const {
  std::vector<std::size_t> found;
  const auto [first, last] = _by_folder.equal_range(folder);
  for (auto at = first; at != last; ++at) found.push_back(at->second);
  std::sort(found.begin(), found.end());
  return found;
}

std::string joined(std::string_view folder, std::string_view path) {
  const std::filesystem::path whole = std::filesystem::path(folder) / path;
  std::string text = whole.lexically_normal().generic_string();
  if (text.ends_with('/')) text.pop_back();
  return text == "." ? std::string() : text;
}

}  // namespace veldra::tool
