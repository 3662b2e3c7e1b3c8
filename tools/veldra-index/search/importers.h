#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/index/read_index.h"

namespace veldra::tool {

/// A place where something is imported.
struct Importer {
  std::string file;
  std::optional<std::int64_t> line;
  std::string imports;  // the path of a file of the repository, or a module outside
  bool external;
};

/// The languages of files in the index of which nobody knows what they import.
std::set<std::string_view> languages_without_imports(ReadIndex& index);

/// Who imports `name`: a file's path, the end of one, or a module as an import would name it.
std::vector<Importer> importers_of(ReadIndex& index, const std::string& name);

}  // namespace veldra::tool
