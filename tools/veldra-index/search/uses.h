#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "veldra-index/index/read_index.h"
#include "veldra-index/search/hit_lines.h"

namespace veldra::tool {

/// A line that names a symbol.
struct Use {
  std::string file;
  MarkedLine line;
  bool is_definition;
};

struct UsesOptions {
  std::string name;   // qualified or not
  std::string below;  // a folder or file; empty for all
  std::int64_t limit = 200;
  int threads = 1;
};

struct Uses {
  std::vector<Use> lines;  // by file and line
  std::int64_t found = 0;  // shown or not
  bool all_counted = true;
};

/// The lines with the name of a symbol as a whole word, letter case minded; none where nothing of
/// that name is defined. What a name means is not looked at: two symbols of one name are one.
Uses uses_of(ReadIndex& index, const UsesOptions& options);

}  // namespace veldra::tool
