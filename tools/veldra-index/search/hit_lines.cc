// The lines of a chunk and the hits in them.
#include "veldra-index/search/hit_lines.h"

namespace veldra::tool {
std::vector<MarkedLine> lines_of(std::string_view marked_text, std::int64_t first_line) {
  std::vector<MarkedLine> lines(1, MarkedLine{first_line, {}, {}});
  bool in_hit = false;  // a phrase may go over several lines
  const auto begin_hit = [&] { lines.back().hits.emplace_back(lines.back().text.size(), 0); };
  const auto end_hit = [&] {
    lines.back().hits.back().second = lines.back().text.size();
    if (lines.back().hits.back().first == lines.back().text.size()) lines.back().hits.pop_back();
  };
  for (const char byte : marked_text) {
    if (byte == HIT_BEGIN || byte == HIT_END) {
      if (in_hit == (byte == HIT_BEGIN)) continue;  // a source with such bytes of its own
      in_hit = !in_hit;
      in_hit ? begin_hit() : end_hit();
    } else if (byte == '\n') {
      if (in_hit) end_hit();
      lines.push_back({lines.back().number + 1, {}, {}});
      if (in_hit) begin_hit();
    } else if (byte != '\r') {
      lines.back().text += byte;
    }
  }
  if (in_hit) end_hit();
  if (lines.back().text.empty()) lines.pop_back();  // behind the last line's end
  return lines;
}

}  // namespace veldra::tool
