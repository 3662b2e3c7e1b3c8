#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>

#include "veldra-index/parse/batches.h"
#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

/// Reads and parses `files`, with `jobs` threads and one ctags process each for some files at a
/// time, and gives every one to `consume` on the calling thread, as it gets ready: in no fixed
/// order, each exactly once.
///
/// Which files are underway is bounded by their bytes, so a slow `consume` slows the threads down.
/// A file whose content is that of its `known_stamp` is not parsed. A file at which ctags ends
/// early is recorded so, and the others are not affected. Throws what `consume` throws,
/// `std::system_error` when ctags cannot be started, and `Interrupted`; the threads and the
/// processes have ended then.
void parse_files(const std::filesystem::path& root, std::span<const PassFile> files, int jobs,
                 const std::function<void(std::unique_ptr<ParsedFile>)>& consume);

}  // namespace veldra::tool
