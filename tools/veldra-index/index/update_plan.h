#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "veldra-index/index/index_pass.h"
#include "veldra-index/tree/list_files.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

/// The work that is left to bring an index to the state of the tree.
struct UpdatePlan {
  PassPlan pass;
  std::vector<std::string> lost;  // what leaves the index: gone, or no text any more
  /// So much has changed that making the index anew takes less time.
  bool rebuild = false;
};

/// Compares the tree with the index: the files that the index does not know, those whose `stat` is
/// not the recorded one, those marked stale, and those whose imports may mean another file now.
///
/// All but the last are read, to tell a change from a touch and text from data.
UpdatePlan plan_update(Database& index, const std::filesystem::path& root, const Tree& tree);

}  // namespace veldra::tool
