#pragma once

#include "veldra-index/index/index_pass.h"
#include "veldra-index/tree/list_files.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

/// Compares the tree with the index: the work that is left.
///
/// That is, of the files of `tree`: those that the index does not know, those whose `stat` is not
/// the recorded one, those marked stale, and those whose imports may mean another file now.
PassPlan plan_update(Database& index, const Tree& tree);

}  // namespace veldra::tool
