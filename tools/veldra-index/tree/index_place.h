#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// Where a repository is, its index and the files beside the index.
struct IndexPlace {
  std::filesystem::path root;  // absolute, without symbolic links
  std::filesystem::path db;    // absolute

  std::filesystem::path staging() const;  // what a rebuild makes
  std::filesystem::path lock() const;     // held by whoever builds
  std::filesystem::path damaged() const;  // where a damaged index is set aside
  bool is_usual() const;                  // not one that was named by --db
  /// Those that are there only while somebody builds.
  std::vector<std::filesystem::path> passing_files() const;

  /// True for a file (its path relative to the root) that is part of an index, by folder or name:
  /// nobody may open it, because closing any descriptor of a database drops its locks.
  bool owns(std::string_view path) const;
  bool owns_folder(std::string_view path) const;
};

/// Makes the folder of the index. In one that is the index's own a .gitignore keeps git's hands
/// off: it would commit the index, and take it away with untracked files. Where nothing can be
/// made, the opening that follows says why.
void make_folder(const IndexPlace& place);

/// An index that is there, and the part of its tree that is meant.
struct FoundIndex {
  IndexPlace place;
  std::string below;  // a folder or file, relative to the root; empty for all of it
};

/// The index that a question at `path` is for: that of the nearest folder, from `path` upward, that
/// has one; `below` is `path` then. With `db` it is that file, and `path` its root. Where there is
/// none, the place where one would be made: the root of the git checkout, or the folder itself.
/// Throws `Failure` when nothing is at `path`.
FoundIndex index_of(const std::filesystem::path& path,
                    const std::optional<std::filesystem::path>& db);

/// The place of the index of `directory`: `db`, or memory/codebase-index/index.db below it.
/// Throws `Failure` when there is no such directory.
IndexPlace find_index(const std::filesystem::path& directory,
                      const std::optional<std::filesystem::path>& db);

}  // namespace veldra::tool
