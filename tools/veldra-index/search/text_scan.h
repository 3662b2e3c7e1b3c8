#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "veldra-index/index/read_index.h"

namespace veldra::tool {

/// Looks through all of the stored text, with all cores, for the pieces that hold something.
struct TextScan {
  std::function<bool(std::string_view)> holds;     // asked from any thread
  std::optional<std::vector<std::int64_t>> files;  // ids in order; none for all
  int threads = 1;

  /// Shows the pieces (row id, first line, text) in the order of their ids, the same whatever the
  /// threads, until `visit` returns false.
  void run(ReadIndex& index, const std::function<bool(const Row&)>& visit) const;
};

}  // namespace veldra::tool
