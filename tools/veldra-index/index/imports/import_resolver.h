#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/index/imports/manifests.h"
#include "veldra-index/index/imports/path_table.h"
#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

/// Finds the files of a repository that an import names, by the rules of the importing file's
/// language. What may mean several files means none: a guess is not recorded as a fact.
///
/// - Python: a leading dot is the importer's package. Anything else begins at the importer's
///   package root, at the root of the tree or at src/. A package comes before a module, and what
///   is imported from a package may be a module of it.
/// - C and C++: beside the importer (in quotes), from the root, or as the end of one path, of
///   several the one that shares most folders with the importer. `<x.h>` without a folder lies in
///   a folder called include; the names of the standard library are never files of the tree.
/// - JavaScript, TypeScript: relative, with the extension or index file left out, by the paths of a
///   tsconfig.json, or by the name of a package.json. Go: by the module of a go.mod; all files of
///   the package. Rust: modules from the crate's root, the module itself or the one above, and the
///   crates of the tree. Java: the end of one path, of which the last parts may be inner classes
///   and members.
/// - Any other: beside the importer, from the root, or as the end of one path; "a.b" and "A::B" are
///   a/b and A/B, and the importer's extension may be left out.
///
/// A file never imports itself.
/// Thread safety: const members, from any thread.
class ImportResolver {
 public:
  /// `paths` must outlive the resolver.
  explicit ImportResolver(const std::vector<std::string_view>& paths, Manifests manifests = {});

  /// The positions in `paths` of what `importer` means; none for something outside.
  std::vector<std::size_t> resolve(std::string_view importer, const Import& import) const;

 private:
  using Found = std::optional<std::size_t>;

  Found _python(std::string_view importer, const Import& import) const;
  Found _python_module(const std::string& path) const;
  Found _c(std::string_view importer, const Import& import) const;
  Found _javascript(std::string_view importer, std::string_view module) const;
  Found _javascript_file(const std::string& path) const;
  std::vector<std::size_t> _go(std::string_view module) const;
  Found _rust(std::string_view importer, const Import& import) const;
  Found _rust_path(std::string folder, const std::vector<std::string>& names) const;
  Found _java(std::string_view module) const;
  Found _other(std::string_view importer, std::string_view module) const;
  Found _only(const std::vector<std::size_t>& found) const;
  Found _nearest(std::string_view importer, const std::vector<std::size_t>& found) const;

  PathTable _paths;
  Manifests _manifests;
};

}  // namespace veldra::tool
