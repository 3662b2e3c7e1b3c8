#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace veldra::tool {

/// Finds the file of a repository that an import names.
///
/// An import is tried as it stands, with the importing file's extension, with dots or colons as
/// slashes ("a.b" is a/b.py, "A::B" is A/B.pm), and as a package (a/b/__init__.py). Each is looked
/// for beside the importing file (unless it is a system's header), then from the root, then as the
/// end of any path; of several that end so, the one that shares most folders with the importing
/// file, then the shortest. A file never imports itself.
///
/// Thread safety: const members, from any thread.
class ImportResolver {
 public:
  /// `paths` must outlive the resolver.
  explicit ImportResolver(const std::vector<std::string_view>& paths);

  /// The position in `paths` of the file that `importer` means by `module`; none for a file
  /// outside.
  std::optional<std::size_t> resolve(std::string_view importer, std::string_view module,
                                     bool system = false) const;

 private:
  std::optional<std::size_t> _find(std::string_view importer, const std::string& name,
                                   bool system) const;
  std::optional<std::size_t> _find_path(std::string_view importer, const std::string& path) const;

  const std::vector<std::string_view>& _paths;
  std::unordered_multimap<std::string_view, std::size_t> _by_file_name;
};

}  // namespace veldra::tool
