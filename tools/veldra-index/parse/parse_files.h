#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>

#include "veldra-index/parse/batches.h"
#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

struct ParseLimits {
  int jobs = 1;                                // threads
  std::chrono::milliseconds per_file{30'000};  // that ctags may take for one
};

/// Reads and parses `files`, with `limits.jobs` threads and one ctags process each for some files
/// at a time, and gives every one to `consume` on the calling thread, as it gets ready: in no fixed
/// order, each exactly once.
///
/// Which files are underway is bounded by their bytes, so a slow `consume` slows the threads down.
/// A file whose content is that of its `known_stamp` is not parsed. A file at which ctags ends
/// early, or which takes it longer than `limits.per_file`, is recorded so, and the others are not
/// affected. Throws what `consume` throws,
/// `std::system_error` when ctags cannot be started, and `Interrupted`; the threads and the
/// processes have ended then.
void parse_files(const std::filesystem::path& root, std::span<const PassFile> files,
                 const ParseLimits& limits,
                 const std::function<void(std::unique_ptr<ParsedFile>)>& consume);

}  // namespace veldra::tool
