// Splitting text into chunks.
#include "veldra-index/parse/chunker.h"

namespace veldra::tool {

std::vector<Chunk> split_into_chunks(std::string_view text, bool exact) {
  std::vector<Chunk> chunks;
  std::size_t begin = 0;  // of the chunk being collected, which ends at `position`
  std::int64_t first_line = 1;
  std::int64_t line = 1;
  const auto close_chunk = [&](std::size_t end) {
    if (end > begin)
      chunks.push_back({text.substr(begin, end - begin), first_line, line - 1, exact});
    begin = end;
    first_line = line;
  };
  for (std::size_t position = 0; position < text.size(); ++line) {
    const std::size_t newline = text.find('\n', position);
    const std::size_t next = newline == std::string_view::npos ? text.size() : newline + 1;
    if (line - first_line == CHUNK_LINES || next - begin > CHUNK_TARGET_BYTES)
      close_chunk(position);
    position = next;
  }
  close_chunk(text.size());
  return chunks;
}

}  // namespace veldra::tool
