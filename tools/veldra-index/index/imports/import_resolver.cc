// From what an import says to the files it means.
#include "veldra-index/index/imports/import_resolver.h"

#include <algorithm>
#include <array>

#include "veldra-index/index/imports/standard_headers.h"
#include "veldra-index/tree/path_text.h"

namespace veldra::tool {
namespace {

enum class Rules { Python, C, JavaScript, Go, Rust, Java, Other };

Rules rules_of(std::string_view path) {
  using enum Rules;
  static constexpr std::pair<std::string_view, Rules> RULES[] = {{".py", Python},
                                                                 {".pyi", Python},
                                                                 {".c", C},
                                                                 {".h", C},
                                                                 {".cc", C},
                                                                 {".cpp", C},
                                                                 {".cxx", C},
                                                                 {".hh", C},
                                                                 {".hpp", C},
                                                                 {".hxx", C},
                                                                 {".inl", C},
                                                                 {".inc", C},
                                                                 {".ipp", C},
                                                                 {".m", C},
                                                                 {".mm", C},
                                                                 {".cu", C},
                                                                 {".S", C},
                                                                 {".js", JavaScript},
                                                                 {".jsx", JavaScript},
                                                                 {".mjs", JavaScript},
                                                                 {".cjs", JavaScript},
                                                                 {".ts", JavaScript},
                                                                 {".tsx", JavaScript},
                                                                 {".mts", JavaScript},
                                                                 {".cts", JavaScript},
                                                                 {".go", Go},
                                                                 {".rs", Rust},
                                                                 {".java", Java}};
  const std::string_view extension = extension_of(path);
  for (const auto& [name, rules] : RULES)
    if (name == extension) return rules;
  return Other;
}

std::vector<std::string> split(std::string_view text, std::string_view separator) {
  std::vector<std::string> parts;
  for (;;) {
    const std::size_t at = text.find(separator);
    parts.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + separator.size());
  }
}

std::string replaced(std::string_view text, char from, char to) {
  std::string result(text);
  std::replace(result.begin(), result.end(), from, to);
  return result;
}

std::size_t shared_folders(std::string_view left, std::string_view right) {
  std::size_t shared = 0;
  for (std::size_t at = 0; at < std::min(left.size(), right.size()) && left[at] == right[at]; ++at)
    shared += left[at] == '/';
  return shared;
}

}  // namespace

ImportResolver::ImportResolver(const std::vector<std::string_view>& paths, Manifests manifests)
    : _paths(paths), _manifests(std::move(manifests)) {}

std::vector<std::size_t> ImportResolver::resolve(std::string_view importer,
                                                 const Import& import) const {
  const auto one = [&](Found found) {
    return found && _paths[*found] != importer ? std::vector<std::size_t>{*found}
                                               : std::vector<std::size_t>();
  };
  switch (rules_of(importer)) {
    case Rules::Python:
      return one(_python(importer, import));
    case Rules::C:
      return one(_c(importer, import));
    case Rules::JavaScript:
      return one(_javascript(importer, import.module));
    case Rules::Go:
      return _go(import.module);
    case Rules::Rust:
      return one(_rust(importer, import));
    case Rules::Java:
      return one(_java(import.module));
    case Rules::Other:
      break;
  }
  return one(_other(importer, import.module));
}

ImportResolver::Found ImportResolver::_only(const std::vector<std::size_t>& found) const {
  return found.size() == 1 ? std::optional(found.front()) : std::nullopt;
}

/// The one that shares more folders with the importer than any other.
ImportResolver::Found ImportResolver::_nearest(std::string_view importer,
                                               const std::vector<std::size_t>& found) const {
  Found nearest;
  std::size_t most = 0;
  for (const std::size_t at : found) {
    const std::size_t shared = shared_folders(_paths[at], importer) + 1;
    if (shared == most) nearest.reset();
    if (shared <= most) continue;
    most = shared;
    nearest = at;
  }
  return nearest;
}

// Python -----------------------------------------------------------------------------------------

ImportResolver::Found ImportResolver::_python_module(const std::string& path) const {
  for (const char* ending : {"/__init__.py", ".py", "/__init__.pyi", ".pyi"}) {
    std::string file = path + ending;
    if (file.starts_with('/')) file.erase(0, 1);  // the root is the package
    if (const Found found = _paths.find(file)) return found;
  }
  return std::nullopt;
}

ImportResolver::Found ImportResolver::_python(std::string_view importer,
                                              const Import& import) const {
  const std::string_view module = import.module;
  const std::size_t dots = std::min(module.find_first_not_of('.'), module.size());
  const std::string path = replaced(module.substr(dots), '.', '/');
  const auto in = [&](std::string_view folder) {
    Found found;
    const std::string whole = joined(folder, path);
    if (!import.name.empty()) found = _python_module(joined(whole, import.name));
    return found ? found : _python_module(whole);
  };
  std::string_view folder = folder_of(importer);
  if (dots > 0) {
    for (std::size_t dot = 1; dot < dots; ++dot) {
      if (folder.empty()) return std::nullopt;
      folder = folder_of(folder);
    }
    return in(folder);
  }
  const auto is_package = [this](std::string_view at) {
    return !at.empty() && (_paths.has(std::string(at) + "/__init__.py") ||
                           _paths.has(std::string(at) + "/__init__.pyi"));
  };
  while (is_package(folder)) folder = folder_of(folder);
  for (const std::string_view root : {folder, std::string_view(), std::string_view("src")})
    if (const Found found = in(root)) return found;
  return std::nullopt;
}

// C and C++ --------------------------------------------------------------------------------------

ImportResolver::Found ImportResolver::_c(std::string_view importer, const Import& import) const {
  const std::string name = joined("", import.module);
  if (import.module.starts_with('/')) return std::nullopt;
  if (import.system && is_standard_header(import.module)) return std::nullopt;
  if (!import.system) {
    if (const Found found = _paths.find(joined(folder_of(importer), import.module))) return found;
  }
  if (name.starts_with("..") || import.module.starts_with("./")) return std::nullopt;
  if (const Found found = _paths.find(name)) return found;
  std::vector<std::size_t> ending = _paths.ending(name);
  std::erase_if(ending, [&](std::size_t at) {
    const bool is_in_include = file_name_of(folder_of(_paths[at])) == "include";
    return _paths[at] == importer ||
           (import.system && name.find('/') == std::string::npos && !is_in_include);
  });
  return _nearest(importer, ending);
}

// JavaScript and TypeScript ----------------------------------------------------------------------

ImportResolver::Found ImportResolver::_javascript_file(const std::string& path) const {
  static constexpr std::array<std::string_view, 12> ENDINGS = {".ts",  ".tsx", ".d.ts",   ".js",
                                                               ".jsx", ".mjs", ".cjs",    ".mts",
                                                               ".cts", ".vue", ".svelte", ".json"};
  if (const Found found = _paths.find(path)) return found;
  for (const std::string_view ending : ENDINGS)
    if (const Found found = _paths.find(path + std::string(ending))) return found;
  // TypeScript names what a file is compiled to.
  for (const auto& [compiled, source] : {std::pair(".js", ".ts"), std::pair(".js", ".tsx"),
                                         std::pair(".mjs", ".mts"), std::pair(".cjs", ".cts")}) {
    if (!path.ends_with(compiled)) continue;
    const std::string stem = path.substr(0, path.size() - std::string_view(compiled).size());
    if (const Found found = _paths.find(stem + source)) return found;
  }
  for (const std::string_view ending : ENDINGS)
    if (const Found found = _paths.find(joined(path, "index" + std::string(ending)))) return found;
  return std::nullopt;
}

ImportResolver::Found ImportResolver::_javascript(std::string_view importer,
                                                  std::string_view module) const {
  if (module.starts_with('.')) return _javascript_file(joined(folder_of(importer), module));
  for (const std::string& file : _manifests.ts_configs.files_of(importer, module))
    if (const Found found = _javascript_file(file)) return found;
  std::size_t end = module.find('/');
  if (module.starts_with('@') && end != std::string_view::npos) end = module.find('/', end + 1);
  const auto package = _manifests.node_packages.find(module.substr(0, end));
  if (package == _manifests.node_packages.end()) return std::nullopt;
  const std::string rest(end == std::string_view::npos ? "" : module.substr(end + 1));
  const std::string& folder = package->second;
  for (const std::string& base : {joined(folder, "src"), folder})
    if (const Found found = _javascript_file(joined(base, rest.empty() ? "index" : rest)))
      return found;
  return std::nullopt;
}

// Go ---------------------------------------------------------------------------------------------

std::vector<std::size_t> ImportResolver::_go(std::string_view module) const {
  std::vector<std::size_t> files;
  for (std::string_view name = module; !name.empty(); name = folder_of(name)) {
    const auto found = _manifests.go_modules.find(name);
    if (found == _manifests.go_modules.end()) continue;
    const std::string_view rest = module.substr(std::min(name.size() + 1, module.size()));
    files = _paths.in_folder(joined(found->second, rest));
    break;
  }
  std::erase_if(files, [this](std::size_t at) {
    return !_paths[at].ends_with(".go") || _paths[at].ends_with("_test.go");
  });
  return files;
}

// Rust -------------------------------------------------------------------------------------------

/// The module that as many of `names` as possible lead to, from `folder` down.
ImportResolver::Found ImportResolver::_rust_path(std::string folder,
                                                 const std::vector<std::string>& names) const {
  Found deepest;
  for (const std::string& name : names) {
    folder = joined(folder, name);
    Found found = _paths.find(folder + ".rs");
    if (!found) found = _paths.find(folder + "/mod.rs");
    if (!found) break;
    deepest = found;
  }
  return deepest;
}

ImportResolver::Found ImportResolver::_rust(std::string_view importer, const Import& import) const {
  const auto first_of = [this](const std::string& folder, auto... names) {
    Found found;
    ((found = found ? found : _paths.find(joined(folder, names))), ...);
    return found;
  };
  const auto is_root = [](std::string_view name) {
    return name == "mod.rs" || name == "lib.rs" || name == "main.rs";
  };
  std::string folder(folder_of(importer));  // of the importing module
  if (!is_root(file_name_of(importer)))
    folder = std::string(importer.substr(0, importer.size() - 3));
  std::string crate(folder_of(importer));
  while (!crate.empty() && !first_of(crate, "lib.rs", "main.rs")) crate = folder_of(crate);

  std::vector<std::string> names = split(import.module, "::");
  const auto take = [&names] { names.erase(names.begin()); };
  Found itself;  // what the path means when none of its names is a module
  if (names.front() == "crate") {
    take();
    folder = crate;
    itself = first_of(crate, "lib.rs", "main.rs");
  } else if (names.front() == "self") {
    take();
  } else if (names.front() == "super") {
    while (!names.empty() && names.front() == "super") {
      take();
      folder = folder_of(folder);
    }
    itself = _paths.find(folder + ".rs");
    if (!itself) itself = first_of(folder, "mod.rs", "lib.rs", "main.rs");
  } else if (const auto found = _manifests.rust_crates.find(names.front());
             found != _manifests.rust_crates.end()) {
    take();
    folder = joined(found->second, "src");
    itself = first_of(folder, "lib.rs", "main.rs");
  }
  const Found module = _rust_path(folder, names);
  return module ? module : itself;
}

// Java and others --------------------------------------------------------------------------------

ImportResolver::Found ImportResolver::_java(std::string_view module) const {
  for (std::string path = replaced(module, '.', '/'); path.find('/') != std::string::npos;
       path = folder_of(path)) {
    const std::vector<std::size_t> found = _paths.ending(path + ".java");
    if (!found.empty()) return _only(found);
  }
  return std::nullopt;
}

ImportResolver::Found ImportResolver::_other(std::string_view importer,
                                             std::string_view module) const {
  std::string path(module);
  if (module.find('/') == std::string_view::npos)
    for (std::size_t at = path.find("::"); at != std::string::npos; at = path.find("::"))
      path.replace(at, 2, "/");
  const std::string extension(extension_of(importer));
  for (const std::string& name : {std::string(module), std::string(module) + extension,
                                  path + extension, replaced(path, '.', '/') + extension}) {
    if (name.empty() || name.starts_with('/')) continue;
    if (const Found found = _paths.find(joined(folder_of(importer), name))) return found;
    if (name.starts_with('.')) continue;
    if (const Found found = _paths.find(name)) return found;
    if (const auto found = _paths.ending(name); !found.empty()) return _nearest(importer, found);
  }
  return std::nullopt;
}

}  // namespace veldra::tool
