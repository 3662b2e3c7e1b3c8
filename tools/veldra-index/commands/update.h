#pragma once

#include "veldra-index/commands/command.h"
#include "veldra-index/tree/index_place.h"

namespace veldra::tool {

/// Brings the index at `place` to the state of its tree, without a word.
void bring_up_to_date(const Options& options, const IndexPlace& place);

}  // namespace veldra::tool
