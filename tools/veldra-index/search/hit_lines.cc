// The lines of a chunk and the hits in them.
#include "veldra-index/search/hit_lines.h"

#include <algorithm>
#include <cctype>

namespace veldra::tool {
namespace {

bool equal_letters(char left, char right) {
  return std::tolower(static_cast<unsigned char>(left)) ==
         std::tolower(static_cast<unsigned char>(right));
}

void merge_overlapping(std::vector<std::pair<std::size_t, std::size_t>>& ranges) {
  std::sort(ranges.begin(), ranges.end());
  std::vector<std::pair<std::size_t, std::size_t>> merged;
  for (const auto& range : ranges) {
    if (!merged.empty() && range.first < merged.back().second) {
      merged.back().second = std::max(merged.back().second, range.second);
    } else {
      merged.push_back(range);
    }
  }
  ranges = std::move(merged);
}

}  // namespace

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

void mark_texts(std::vector<MarkedLine>& lines, const std::vector<std::string>& texts) {
  for (MarkedLine& line : lines) {
    for (const std::string& text : texts) {
      auto at = line.text.begin();
      while ((at = std::search(at, line.text.end(), text.begin(), text.end(), equal_letters)) !=
             line.text.end()) {
        const auto begin = static_cast<std::size_t>(at - line.text.begin());
        line.hits.emplace_back(begin, begin + text.size());
        ++at;
      }
    }
    merge_overlapping(line.hits);
  }
}

}  // namespace veldra::tool
