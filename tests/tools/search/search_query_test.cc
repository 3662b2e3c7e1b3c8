// What the words of a search mean, and of which names a word is a part.
#include "veldra-index/search/search_query.h"

#include <gtest/gtest.h>

#include <tuple>

#include "veldra-index/search/symbol_search.h"

namespace veldra::tool {
namespace {

TEST(SearchQueryTest, TellsWordsBeginningsPhrasesAndTextAsItStands) {
  using Texts = std::vector<std::string>;
  const std::tuple<std::string_view, std::string_view, Texts, Texts, bool> cases[] = {
      {"", "", {}, {}, true},
      {" open\tfile ", R"("open" AND "file")", {}, {"open", "file"}, true},
      {"swap*", R"("swap"*)", {}, {}, false},
      {"a b*", R"("a" AND "b"*)", {}, {"a"}, false},
      {"foo->bar", R"("foo->bar"*)", {"foo->bar"}, {}, false},
      {"C++", R"("C++")", {"C++"}, {}, false},
      {"-> *", "", {"->", "*"}, {}, false},
      {"\"open file\"x", R"("open file" AND "x")", {}, {"x"}, false},
      {"\"->\" \"\"", "", {"->"}, {}, false},
      {"\"open", R"("""open"*)", {"\"open"}, {}, false},
      {"größe_2", "\"größe_2\"", {}, {"größe_2"}, true}};
  for (const auto& [text, match, literal, words, only_words] : cases) {
    const SearchQuery query = parse_search(text);
    EXPECT_EQ(query.match, match) << text;
    EXPECT_EQ(query.literal, literal) << text;
    EXPECT_EQ(query.words, words) << text;
    EXPECT_EQ(query.only_words, only_words) << text;
  }
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
  EXPECT_EQ(like_pattern("50%_\\x"), "%50\\%\\_\\\\x%");
}

TEST(SymbolSearchTest, TheLastNameIsBehindTheLastSeparator) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"x", "x"}, {"a::b::c", "c"}, {"a.b", "b"}, {"a.", "a."}, {"a::b.c", "b.c"}};
  for (const auto& [name, last] : cases) EXPECT_EQ(last_name(name), last);
}

}  // namespace
}  // namespace veldra::tool
