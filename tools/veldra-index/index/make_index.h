#pragma once

#include <optional>

#include "veldra-index/index/index_pass.h"
#include "veldra-index/index/open_index.h"

namespace veldra::tool {

/// What an index that was made anew holds, and what the pass did.
struct NewIndex {
  RowCounts rows;
  PassResult result;
};

/// Makes the index of `tree` anew: parses every file into a staging file, which becomes the index
/// where there is none, and otherwise takes its place in one step. Until then `index` answers, and
/// when this fails or is interrupted it stays.
///
/// `index` is the one that is there, and is opened when there was none. `versions` are those of the
/// extractors. The caller holds the build lock.
NewIndex make_index(std::optional<OpenIndex>& index, const IndexPlace& place, const Tree& tree,
                    const ExtractorVersions& versions, const ParseLimits& limits);

}  // namespace veldra::tool
