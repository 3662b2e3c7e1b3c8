#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace veldra::tool {

inline constexpr std::int64_t CHUNK_LINES = 40;
inline constexpr std::size_t CHUNK_TARGET_BYTES = 32 * 1024;

/// A piece of a file's text: a row of `code_chunks`.
struct Chunk {
  std::string_view text;
  std::int64_t start_line;
  std::int64_t end_line;
  bool exact;  // as the file has them
};

/// Splits `text`, which must be UTF-8, into pieces of `CHUNK_LINES` lines, fewer where they would
/// be larger than `CHUNK_TARGET_BYTES`. A longer line is a piece of its own, whole: what is looked
/// for never lies across two. The pieces one after the other are the text.
std::vector<Chunk> split_into_chunks(std::string_view text, bool exact);

}  // namespace veldra::tool
