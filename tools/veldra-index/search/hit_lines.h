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

/// Bytes of a line or of a text, from begin to end.
using Range = std::pair<std::size_t, std::size_t>;

/// A chunk's text with "\n" alone as line end, and what in it was found: in order, none
/// overlapping, none over the end of a line.
struct MarkedText {
  std::string text;
  std::vector<Range> hits;
};

/// `text` as it is stored, without carriage returns.
std::string plain_text(std::string_view text);

/// A text whose hits stand between `HIT_BEGIN` and `HIT_END`, without these.
MarkedText text_without_marks(std::string_view marked);

/// A line of a text in which something was found.
struct HitLine {
  std::int64_t number;
  std::string_view text;    // of the text it is a line of
  std::vector<Range> hits;  // of the line
};

/// The lines of `text`, the first of which has the number `first_line`, that have one of `hits`.
std::vector<HitLine> lines_with(const std::vector<Range>& hits, std::string_view text,
                                std::int64_t first_line);

/// A line and what in it was found, if anything.
struct MarkedLine {
  std::int64_t number;
  std::string text;
  std::vector<Range> hits;
};

/// All lines of `text`; `found` are those of them that have hits.
std::vector<MarkedLine> all_lines(std::string_view text, std::int64_t first_line,
                                  const std::vector<HitLine>& found);

}  // namespace veldra::tool
