// What the words of a search mean, and of which names a word is a part.
#include "veldra-index/search/search_query.h"

#include <gtest/gtest.h>

#include <tuple>

#include "veldra-index/search/symbol_search.h"

namespace veldra::tool {
namespace {

TEST(SearchQueryTest, TellsWordsFromTextAsItStands) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", ""},
      {" open\tfile ", R"("open" AND "file")"},
      {"a b*", R"("a" AND "b"*)"},
      {"größe_2", "\"größe_2\""},
      {"*", ""},
      {"open \"file\"", ""},
      {"C++", ""},
      {"a ->", ""}};
  for (const auto& [text, match] : cases) EXPECT_EQ(match_of(parse_search(text).words), match);
  EXPECT_EQ(inside_quotes("\"open file\""), "open file");
  for (const char* text : {"\"\"", "\"a\" \"b\"", "a\"", "\""}) EXPECT_EQ(inside_quotes(text), "");
}

TEST(SearchQueryTest, NarrowsATextToTheWordsThatAreWhole) {
  const std::pair<std::string_view, std::string_view> texts[] = {
      {"llo(size", R"("(size"*)"},
      {"->next = NULL;", R"("->next = NULL;")"},
      {"word", ""},
      {"größe", ""},
      {"x → ", ""},
      {"a \"b", R"(" ""b"*)"},
      {"f(", ""},
      {" ü", ""}};
  for (const auto& [text, match] : texts) EXPECT_EQ(narrowing_match(text), match) << text;
  const std::pair<std::string_view, std::string_view> expressions[] = {
      {"open_\\w+\\(", ""}, {"^ static int.*\\(bar, baz?$", R"(" static int"* AND "(bar, ba"*)"},
      {"a|(b) c", ""},      {"x \\| yes", R"(" | yes"*)"},
      {"x \\pL yes", ""},   {" größé?", R"(" größ"*)"},
      {" [ab] yes", ""}};
  for (const auto& [text, match] : expressions)
    EXPECT_EQ(narrowing_match_of_regex(text), match) << text;
}

TEST(SearchQueryTest, FindsWholePartsOfNamesOnly) {
  using Words = std::vector<std::string_view>;
  const std::tuple<std::string_view, Words, Words> cases[] = {
      {"swap_index_from", {"swap", "IndexFrom"}, {"swap_from", "wap"}},
      {"SwapIndexFrom", {"swap", "index_from"}, {"swapi"}},
      {"HTTPServer", {"HTTP", "Server"}, {"TTP", "erver", "", "_"}},
      {"utf16", {"utf", "16"}, {"1"}},
      {"swapped_swap", {"swap"}, {"ped"}}};
  for (const auto& [name, parts, others] : cases) {
    for (const std::string_view word : parts) EXPECT_TRUE(has_part(name, word)) << name << word;
    for (const std::string_view word : others) EXPECT_FALSE(has_part(name, word)) << name << word;
  }
  EXPECT_EQ(part_pattern("HTTPServer_2"), "%http%server%2%");
}

TEST(SymbolSearchTest, TheLastNameIsBehindTheLastSeparator) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"x", "x"}, {"a::b::c", "c"}, {"a.b", "b"}, {"a.", "a."}, {"a::b.c", "b.c"}};
  for (const auto& [name, last] : cases) EXPECT_EQ(last_name(name), last);
}

}  // namespace
}  // namespace veldra::tool
