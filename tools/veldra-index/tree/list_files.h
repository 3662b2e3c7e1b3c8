#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/tree/index_place.h"
#include "veldra-index/tree/source_file.h"

namespace veldra::tool {

/// The files of a tree that an index is made of.
struct Tree {
  std::vector<SourcePath> files;  // in the order of their paths
  struct Unreadable {
    std::string path;
    std::string message;
  };
  std::vector<Unreadable> unreadable;  // folders that could not be listed
  bool from_git = false;
};

/// The paths of `tree.files`, which must outlive them.
std::vector<std::string_view> paths_of(const Tree& tree);

/// Lists the regular files below the root: in a git checkout those that git tracks or would track,
/// otherwise all but hidden ones. Symbolic links are not followed. Nothing is opened but folders:
/// neither the index's own files nor any other file.
///
/// A root that the checkout around it ignores is listed as if there were no git, and so is one that
/// git refuses to look at.
/// Throws `Interrupted`.
Tree walk_tree(const IndexPlace& place);

}  // namespace veldra::tool
