#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace veldra::tool {

/// The paths of a tree, found by what an import says of them. Positions are those in `paths`.
///
/// Thread safety: const members, from any thread.
class PathTable {
 public:
  /// `paths` must outlive the table.
  explicit PathTable(const std::vector<std::string_view>& paths);

  std::optional<std::size_t> find(std::string_view path) const;
  bool has(std::string_view path) const { return find(path).has_value(); }
  /// Those that are `name` or end with a slash and `name`.
  std::vector<std::size_t> ending(std::string_view name) const;
  /// Those directly in `folder`.
  std::vector<std::size_t> in_folder(std::string_view folder) const;
  std::string_view operator[](std::size_t at) const { return _paths[at]; }

 private:
  const std::vector<std::string_view>& _paths;
  std::unordered_map<std::string_view, std::size_t> _by_path;
  std::unordered_multimap<std::string_view, std::size_t> _by_file_name;
  std::unordered_multimap<std::string_view, std::size_t> _by_folder;
};

/// `folder` and `path`, with "." and ".." resolved; begins with ".." when it leads out of the tree.
std::string joined(std::string_view folder, std::string_view path);

}  // namespace veldra::tool
