#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/index/read_index.h"

namespace veldra::tool {

/// The symbols' names of which `word` is a part (`has_part`), at most `limit`, the shortest first.
///
/// One pass over the index on the names: full-text search takes an identifier with underscores or
/// capitals as one word and knows only where it begins.
std::vector<std::string> names_with_part(ReadIndex& index, std::string_view word,
                                         std::size_t limit);

}  // namespace veldra::tool
