// What a search asks for, and the lines that answer it.
#include "veldra-index/search_query.h"

#include <gtest/gtest.h>

#include "veldra-index/hit_lines.h"
#include "veldra-index/sqlite_release.h"

namespace veldra::tool {
namespace {

TEST(SearchQueryTest, ReadsWordsPhrasesPrefixesAndTextAsItStands) {
  struct Case {
    std::string_view text, match, literal;
    bool only_words;
  };
  static constexpr Case cases[] = {
      {"  open\tfile ", R"("open" AND "file")", "", true},
      {"NOT OR", R"("NOT" AND "OR")", "", true},
      {"swap*", R"("swap"*)", "", false},
      {R"("open file" now)", R"("open file" AND "now")", "", false},
      {"foo->bar", R"("foo->bar"*)", "foo->bar", false},
      {R"(printf("a)", R"("printf(""a"*)", R"(printf("a)", false},
      {"*", "", "*", false},
      {R"("->")", "", "->", false},
      {"naïve", R"("naïve")", "", true},
  };
  for (const auto& [text, match, literal, only_words] : cases) {
    SCOPED_TRACE(text);
    const SearchQuery query = parse_search(text);
    EXPECT_EQ(query.match, match);
    EXPECT_EQ(query.literal.empty() ? "" : query.literal[0], literal);
    EXPECT_EQ(query.only_words, only_words);
  }
  EXPECT_EQ(like_pattern("50%_\\"), "%50\\%\\_\\\\%");
}

TEST(SearchQueryTest, FindsTheWordsThatANameIsMadeOf) {
  static constexpr std::pair<std::string_view, std::string_view> found[] = {
      {"swap_index_from", "from"},      {"SwapIndexFrom", "swap"},       {"SwapIndexFrom", "index"},
      {"swap_index_from", "IndexFrom"}, {"SwapIndexFrom", "index_from"}, {"HTTPServer", "http"},
      {"HTTPServer", "server"},         {"utf8_decode", "utf"}};
  for (const auto& [name, word] : found) EXPECT_TRUE(has_part(name, word)) << name << ": " << word;
  static constexpr std::pair<std::string_view, std::string_view> others[] = {
      {"swapped", "swap"}, {"unswap", "swap"}, {"swap", "swap_index"}, {"anything", "_"}};
  for (const auto& [name, word] : others)
    EXPECT_FALSE(has_part(name, word)) << name << ": " << word;
}

std::string rendered(const std::vector<MarkedLine>& lines) {
  std::string all;
  for (const MarkedLine& line : lines) {
    all += std::to_string(line.number) + ":" + line.text;
    for (const auto& [begin, end] : line.hits)
      all += "{" + std::to_string(begin) + "," + std::to_string(end) + "}";
    all += "|";
  }
  return all;
}

TEST(HitLinesTest, KeepsHitsWithTheirLines) {
  EXPECT_EQ(rendered(lines_of("a \x02hit\x03\r\nb\n", 7)), "7:a hit{2,5}|8:b|");
  EXPECT_EQ(rendered(lines_of("\x02on\ntwo\x03 lines", 1)), "1:on{0,2}|2:two lines{0,3}|");
  EXPECT_EQ(rendered(lines_of("\x02never ended", 1)), "1:never ended{0,11}|");
  std::vector<MarkedLine> lines = lines_of("aXa xAx\nno", 1);
  mark_texts(lines, {"a", "xa"});
  EXPECT_EQ(rendered(lines), "1:aXa xAx{0,1}{1,3}{4,6}|2:no|");
}

TEST(SqliteReleaseTest, KnowsWhichReleasesHaveTheFault) {
  for (const char* bad : {"3.7.0", "3.44.5", "3.50.6", "3.51.2"})
    EXPECT_TRUE(has_wal_reset_fault(bad)) << bad;
  for (const char* good : {"3.6.23", "3.44.6", "3.50.7", "3.51.3", "4.0.0"})
    EXPECT_FALSE(has_wal_reset_fault(good)) << good;
}

}  // namespace
}  // namespace veldra::tool
