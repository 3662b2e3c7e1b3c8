// From what an import says to the file it means.
#include "veldra-index/index/import_resolver.h"

#include <algorithm>
#include <filesystem>

#include "veldra-index/tree/path_text.h"

namespace veldra::tool {
namespace {

std::size_t shared_folders(std::string_view left, std::string_view right) {
  std::size_t shared = 0;
  for (std::size_t at = 0; at < std::min(left.size(), right.size()) && left[at] == right[at];
       ++at) {
    shared += left[at] == '/';
  }
  return shared;
}

/// "a.b.c" and "A::B" as a path; what is one already stays. Leading dots name folders: one the
/// file's own, each further one the folder above.
std::string module_path(std::string_view module) {
  if (module.find('/') != std::string_view::npos) return std::string(module);
  std::string path;
  const std::size_t dots = std::min(module.find_first_not_of('.'), module.size());
  for (std::size_t dot = 0; dot < dots; ++dot) path += dot == 0 ? "./" : "../";
  for (std::size_t at = dots; at < module.size(); ++at) {
    if (module[at] == '.' || module[at] == '\\') {
      path += '/';
    } else if (module.substr(at).starts_with("::")) {
      path += '/';
      ++at;
    } else {
      path += module[at];
    }
  }
  return path;
}

}  // namespace

ImportResolver::ImportResolver(const std::vector<std::string_view>& paths) : _paths(paths) {
  _by_file_name.reserve(paths.size());
  for (std::size_t at = 0; at < paths.size(); ++at)
    _by_file_name.emplace(file_name_of(paths[at]), at);
}

std::optional<std::size_t> ImportResolver::resolve(std::string_view importer,
                                                   std::string_view module, bool system) const {
  const std::string name(module);
  const std::string extension(extension_of(importer));
  if (const auto found = _find(importer, name, system)) return found;
  if (const auto found = _find(importer, name + extension, system)) return found;
  const std::string path = module_path(module);
  if (const auto found = _find(importer, path + extension, system)) return found;
  return _find(importer, path + "/__init__" + extension, system);
}

std::optional<std::size_t> ImportResolver::_find_path(std::string_view importer,
                                                      const std::string& path) const {
  const auto [first, last] = _by_file_name.equal_range(file_name_of(path));
  for (auto at = first; at != last; ++at) {
    if (_paths[at->second] == path && path != importer) return at->second;
  }
  return std::nullopt;
}

std::optional<std::size_t> ImportResolver::_find(std::string_view importer, const std::string& name,
                                                 bool system) const {
  const auto [first, last] = _by_file_name.equal_range(file_name_of(name));
  if (first == last) return std::nullopt;
  if (!system) {
    const std::filesystem::path beside = std::filesystem::path(folder_of(importer)) / name;
    const auto found = _find_path(importer, beside.lexically_normal().generic_string());
    if (found) return found;
  }
  if (name.starts_with('.')) return std::nullopt;  // relative to the file and nothing else
  if (const auto found = _find_path(importer, name)) return found;

  const std::string ending = "/" + name;
  std::optional<std::size_t> best;
  const auto is_better = [&](std::size_t left, std::size_t right) {
    const std::size_t left_shares = shared_folders(_paths[left], importer);
    const std::size_t right_shares = shared_folders(_paths[right], importer);
    if (left_shares != right_shares) return left_shares > right_shares;
    if (_paths[left].size() != _paths[right].size())
      return _paths[left].size() < _paths[right].size();
    return _paths[left] < _paths[right];
  };
  for (auto at = first; at != last; ++at) {
    if (!_paths[at->second].ends_with(ending) || _paths[at->second] == importer) continue;
    if (!best || is_better(at->second, *best)) best = at->second;
  }
  return best;
}

}  // namespace veldra::tool
