#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veldra::tool {

/// Bytes that full-text search puts around its hits; source text does not hold them.
inline constexpr char HIT_BEGIN = '\x02';
inline constexpr char HIT_END = '\x03';

/// A line of a chunk, and what in it was found: ranges of bytes, in order, none overlapping.
struct MarkedLine {
  std::int64_t number;
  std::string text;
  std::vector<std::pair<std::size_t, std::size_t>> hits;  // begin and end
};

/// The lines of a chunk whose hits stand between `HIT_BEGIN` and `HIT_END`, without these.
std::vector<MarkedLine> lines_of(std::string_view marked_text, std::int64_t first_line);

}  // namespace veldra::tool
