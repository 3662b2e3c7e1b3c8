#pragma once

#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

/// Fills language, symbols, imports and problems from `file.tags`.
///
/// A symbol's parent is the symbol of the same file that has its scope's name and lies around it,
/// or the only one of that name. Where several have it and none lies around, the last before it is
/// taken, and a problem `FQN_COLLISION_ERROR` says so, once per name.
void read_tags(ParsedFile& file);

}  // namespace veldra::tool
