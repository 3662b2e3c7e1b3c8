// What a line must hold, and the quick look whether a text may hold it at all.
#include "veldra-index/search/line_pattern.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <random>

namespace veldra::tool {
namespace {

using Edges = LinePattern::Edges;

TEST(LinePatternTest, FindsInEachLineOfAText) {
  const auto hits = [](const LinePattern& pattern, std::string_view text) {
    std::string found;
    for (const HitLine& line : lines_with(pattern.hits(text), text, 1)) {
      found += std::to_string(line.number) + ":";
      for (const auto& [begin, end] : line.hits)
        found += std::to_string(begin) + "-" + std::to_string(end) + " ";
    }
    return found;
  };
  constexpr std::string_view TEXT = "int in;\n\nIn inner\n  main(in)\n";
  EXPECT_EQ(hits(LinePattern::text("in", false, Edges::Both), TEXT), "1:4-6 3:0-2 4:7-9 ");
  EXPECT_EQ(hits(LinePattern::text("in", true, Edges::Begin), TEXT), "1:0-2 4-6 3:3-5 4:7-9 ");
  EXPECT_EQ(hits(LinePattern::regex("^", false, Edges::Anywhere), TEXT),
            "1:0-0 2:0-0 3:0-0 4:0-0 ");
  EXPECT_EQ(hits(LinePattern::regex("\\s*$|n", false, Edges::Anywhere), TEXT),
            "1:1-2 5-6 7-7 2:0-0 3:1-2 4-5 5-6 8-8 4:5-6 8-9 10-10 ");
  EXPECT_EQ(hits(LinePattern::regex("n[^x]+i", false, Edges::Anywhere), TEXT),
            "1:1-5 3:1-4 4:5-8 ");
  EXPECT_EQ(hits(LinePattern::regex("x?", false, Edges::Anywhere), ""), "");
  EXPECT_EQ(hits(LinePattern::text("inner\n", false, Edges::Anywhere), TEXT), "");
}

/// The letters that have another case beyond ASCII are among those of the texts.
TEST(LinePatternTest, TheQuickLooksOverlookNothing) {
  static constexpr std::array<std::string_view, 12> LETTERS = {"a", "A", "k",      "S", "_", "\n",
                                                               "K", "s", "\u212a", "ſ", "é", "É"};
  std::mt19937 random(1);
  const auto made = [&](std::size_t length) {
    std::string text;
    const std::size_t most = random() % 2 == 0 ? LETTERS.size() : 6;  // half of them ASCII
    while (length-- > 0) text += LETTERS[random() % most];
    return text;
  };
  int found = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string wanted = made(1 + random() % 4);
    std::ranges::replace(wanted, '\n', 'a');
    const std::string text = made(random() % 40);
    const LinePattern pattern = LinePattern::text(wanted, false);
    EXPECT_EQ(pattern.may_be_in(text), !pattern.hits(text).empty()) << wanted << " in " << text;
    const auto hits = pattern.hits(text + "\n\u20ac");  // beyond ASCII, so that RE2 looks
    EXPECT_EQ(pattern.hits(text), hits) << wanted << " in " << text;
    found += pattern.may_be_in(text) ? 1 : 0;
  }
  EXPECT_GT(found, 400);
}

}  // namespace
}  // namespace veldra::tool
