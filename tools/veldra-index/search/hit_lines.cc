// The lines of a chunk and the hits in them.
#include "veldra-index/search/hit_lines.h"

#include <algorithm>

namespace veldra::tool {

std::string plain_text(std::string_view text) {
  std::string plain(text);
  if (plain.find('\r') != plain.npos) std::erase(plain, '\r');  // few have one
  return plain;
}

MarkedText text_without_marks(std::string_view marked) {
  MarkedText plain;
  bool in_hit = false;  // a phrase may go over several lines
  const auto begin_hit = [&] { plain.hits.emplace_back(plain.text.size(), 0); };
  const auto end_hit = [&] {
    plain.hits.back().second = plain.text.size();
    if (plain.hits.back().first == plain.text.size()) plain.hits.pop_back();
  };
  for (const char byte : marked) {
    if (byte == HIT_BEGIN || byte == HIT_END) {
      if (in_hit == (byte == HIT_BEGIN)) continue;  // a source with such bytes of its own
      in_hit = !in_hit;
      in_hit ? begin_hit() : end_hit();
    } else if (byte == '\n') {
      if (in_hit) end_hit();
      plain.text += byte;
      if (in_hit) begin_hit();
    } else if (byte != '\r') {
      plain.text += byte;
    }
  }
  if (in_hit) end_hit();
  return plain;
}

std::vector<HitLine> lines_with(const std::vector<Range>& hits, std::string_view text,
                                std::int64_t first_line) {
  std::vector<HitLine> lines;
  std::size_t begin = 0, end = 0;  // of the line that was looked at last
  std::int64_t number = first_line;
  for (const Range& hit : hits) {
    // Where the last line has an end, nothing is behind it: an empty hit there is in no line.
    if (hit.first == text.size() && (text.empty() || text.back() == '\n')) break;
    if (lines.empty() || hit.first > end) {
      const std::size_t before = text.rfind('\n', hit.first == 0 ? 0 : hit.first - 1);
      const std::size_t next = hit.first == 0 || before == std::string_view::npos ? 0 : before + 1;
      number += std::count(text.begin() + static_cast<std::ptrdiff_t>(begin),
                           text.begin() + static_cast<std::ptrdiff_t>(next), '\n');
      begin = next;
      end = std::min(text.find('\n', hit.first), text.size());
      lines.push_back({number, text.substr(begin, end - begin), {}});
    }
    lines.back().hits.emplace_back(hit.first - begin, hit.second - begin);
  }
  return lines;
}

std::vector<MarkedLine> all_lines(std::string_view text, std::int64_t first_line,
                                  const std::vector<HitLine>& found) {
  std::vector<MarkedLine> lines;
  auto hit = found.begin();
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back({first_line++, std::string(text.substr(begin, end - begin)), {}});
    if (hit != found.end() && hit->number == lines.back().number) lines.back().hits = hit++->hits;
    begin = end + 1;
  }
  return lines;
}

}  // namespace veldra::tool
