#pragma once

#include <span>
#include <string>
#include <vector>

#include "veldra-index/tree/source_file.h"

namespace veldra::tool {

/// One file of a pass.
struct PassFile {
  SourcePath source;
  std::string known_stamp;  // of a file in the index that is not stale; empty otherwise
};

/// Divides `files`, in their order, among `jobs` threads: large batches first, small ones at last,
/// so that all end at about the same time. None is empty, and each has room on a command line.
std::vector<std::span<const PassFile>> make_batches(std::span<const PassFile> files, int jobs);

}  // namespace veldra::tool
