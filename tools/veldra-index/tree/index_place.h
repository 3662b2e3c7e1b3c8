#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// Where a repository is, its index and the files beside the index.
struct IndexPlace {
  std::filesystem::path root;  // absolute, without symbolic links
  std::filesystem::path db;    // absolute

  std::filesystem::path staging() const;  // what a rebuild makes
  std::filesystem::path lock() const;     // held by whoever builds
  /// Those that are there only while somebody builds.
  std::vector<std::filesystem::path> passing_files() const;

  /// True for a file (its path relative to the root) that is part of an index, by folder or name:
  /// nobody may open it, because closing any descriptor of a database drops its locks.
  bool owns(std::string_view path) const;
  bool owns_folder(std::string_view path) const;
};

/// The place of the index of `directory`: `db`, or memory/codebase-index/index.db below it.
/// Throws `Failure` when there is no such directory.
IndexPlace find_index(const std::filesystem::path& directory,
                      const std::optional<std::filesystem::path>& db);

}  // namespace veldra::tool
