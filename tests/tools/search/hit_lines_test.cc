// The lines of a chunk and where in them something was found.
#include "veldra-index/search/hit_lines.h"

#include <gmock/gmock.h>

namespace veldra::tool {
namespace {

using Texts = std::vector<std::string>;

/// Each line as its number, its text and its hits: "5 abc [1,2)".
Texts shown(const std::vector<MarkedLine>& lines) {
  Texts all;
  for (const MarkedLine& line : lines) {
    all.push_back(std::to_string(line.number) + " " + line.text);
    for (const auto& [begin, end] : line.hits)
      all.back() += " [" + std::to_string(begin) + "," + std::to_string(end) + ")";
  }
  return all;
}

TEST(HitLinesTest, FindsTheMarksInTheLines) {
  const std::pair<std::string_view, Texts> cases[] = {
      {"", {}},
      {"a\2b\3c\r\nd\n", {"5 abc [1,2)", "6 d"}},
      {"a \2b\nc\3 d", {"5 a b [2,3)", "6 c d [0,1)"}},
      {"\2a\3 \2\3b", {"5 a b [0,1)"}},
      {"\3a\2\2b\3\3", {"5 ab [1,2)"}},
      {"\n\nx \2y", {"5 ", "6 ", "7 x y [2,3)"}}};
  for (const auto& [marked, lines] : cases) {
    const auto& [text, hits] = text_without_marks(marked);
    EXPECT_EQ(shown(all_lines(text, 5, lines_with(hits, text, 5))), lines);
  }
}

}  // namespace
}  // namespace veldra::tool
