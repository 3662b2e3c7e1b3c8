// Which files one ctags gets.
#include "veldra-index/parse/batches.h"

#include <algorithm>
#include <cstdint>

namespace veldra::tool {
namespace {

/// What one ctags gets: as little as pays for its start, and all of them together not more than
/// memory should hold.
constexpr std::int64_t BATCH_MIN_BYTES = 256 * 1024;
constexpr std::int64_t BATCH_MAX_BYTES = 4 * 1024 * 1024;
constexpr std::int64_t BATCHES_MAX_BYTES = 32 * 1024 * 1024;
/// The paths of a batch are arguments of a program.
constexpr std::size_t BATCH_PATH_BYTES = 64 * 1024;

}  // namespace

std::vector<std::span<const PassFile>> make_batches(std::span<const PassFile> files, int jobs) {
  const std::int64_t most = std::clamp(BATCHES_MAX_BYTES / jobs, BATCH_MIN_BYTES, BATCH_MAX_BYTES);
  std::int64_t left = 0;
  for (const PassFile& file : files) left += file.source.size;

  std::vector<std::span<const PassFile>> batches;
  while (!files.empty()) {
    const std::int64_t wanted = std::clamp(left / (2 * jobs), BATCH_MIN_BYTES, most);
    std::size_t count = 0;
    std::int64_t bytes = 0;
    for (std::size_t path_bytes = 0;
         count < files.size() && bytes < wanted && path_bytes < BATCH_PATH_BYTES; ++count) {
      bytes += files[count].source.size;
      path_bytes += files[count].source.path.size();
    }
    batches.push_back(files.first(count));
    files = files.subspan(count);
    left -= bytes;
  }
  return batches;
}

}  // namespace veldra::tool
