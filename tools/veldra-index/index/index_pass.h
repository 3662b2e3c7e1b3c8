#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/parse/parse_files.h"
#include "veldra-index/tree/list_files.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

/// What an index pass is to do.
struct PassPlan {
  std::vector<PassFile> files;    // to be read, and parsed unless their content is known
  std::vector<std::string> gone;  // paths to take out of the index
};

/// What it did.
struct PassResult {
  std::int64_t parsed = 0;
  std::int64_t unchanged = 0;  // read, and found to have the content that the index knows
  std::int64_t removed = 0;    // from the index: gone, or no text any more
  std::int64_t binary = 0;
  std::int64_t unusable = 0;
};

/// Carries out `plan` for the files of `tree` inside the transaction of `cursor`, within
/// `limits`.
PassResult run_pass(Cursor& cursor, const IndexPlace& place, const Tree& tree, const PassPlan& plan,
                    const ParseLimits& limits);

/// Notes the time of a finished pass in the index, in UTC.
void record_pass(Database& index);

}  // namespace veldra::tool
