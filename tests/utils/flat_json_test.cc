// The reader is strict; what the writer wrote is read as it was.
#include "veldra/utils/flat_json.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/split.h"

namespace veldra {
namespace {

using Members = std::map<std::string, std::int64_t>;

TEST(FlatJsonTest, ReadsOneObjectOfIntegers) {
  const std::pair<std::string_view, Members> cases[] = {
      {" \t\r\n{ } ", {}},
      {R"({"b":-1,"a":0,"c":-0})", {{"a", 0}, {"b", -1}, {"c", 0}}},
      {R"({"a": 1, "a": 2})", {{"a", 2}}},
      {R"({"": 9223372036854775807})", {{"", std::numeric_limits<std::int64_t>::max()}}},
      {R"({"m": -9223372036854775808})", {{"m", std::numeric_limits<std::int64_t>::min()}}},
      {R"({"\u0000\u00e9\u20AC\ud83d\ude00": 1})",
       {{std::string("\0\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", 10), 1}}},
      {R"({"\ud800x": 1})", {{"\xed\xa0\x80x", 1}}}};
  for (const auto& [text, members] : cases) EXPECT_EQ(parse_flat_json(text), members) << text;
}

TEST(FlatJsonTest, RefusesEverythingElse) {
  static constexpr std::string_view CASES[] = {
      R"( ;{;};[];7;null;"a";{}{};{} x;{,};{"a"};{"a":};{"a":1,};{"a":1 "b":2};{a:1};{'a':1})",
      R"({"a":true};{"a":null};{"a":"1"};{"a":[1]};{"a":{}};{"a":1.0};{"a":1e3};{"a":1E0})",
      R"({"a":01};{"a":-01};{"a":-};{"a":+1};{"a":0x1};{"a":1;{"a":9223372036854775808})",
      R"({"a":-9223372036854775809};{"a:1};{"a\":1};{"\x":1};{"\u12":1};{"\u12g4":1};{"\u-123":1})",
      "{\"\n\":1};{\"\xff\":1};{\"\xc0\x80\":1};{\"\xed\xa0\x80\":1};{\"\xf4\x90\x80\x80\":1}",
      "\xef\xbb\xbf{};{\"\xe2\x82\":1};{\"\\;{\"\\u;{\"\\u0"};
  for (const std::string_view row : CASES)
    for (const std::string_view text : split(row, ";")) EXPECT_FALSE(parse_flat_json(text)) << text;
  EXPECT_FALSE(parse_flat_json(std::string_view("{}\0", 3))) << "a NUL is no white space";
}

TEST(FlatJsonTest, WritesPrintableAsciiInTheOrderOfCodePointsAndReadsItBack) {
  const std::pair<Members, std::string_view> cases[] = {
      {{{"tsx", 3}, {"c", -2}}, R"({"c": -2, "tsx": 3})"},
      {{{"\"\\/\b\f\n\r\t\x01\x1f\x7f ~", 1}}, R"({"\"\\/\b\f\n\r\t\u0001\u001f\u007f ~": 1})"},
      {{{"\xf0\x9f\x98\x80", 2}, {"\xef\xbf\xbd", 1}, {"z", 0}},
       R"({"z": 0, "\ufffd": 1, "\ud83d\ude00": 2})"},
      {{{"\xc3\xa9\xc3", 1}}, R"({"\u00e9\udcc3": 1})"}};
  for (const auto& [members, text] : cases) {
    EXPECT_EQ(format_flat_json(members), text);
    EXPECT_EQ(parse_flat_json(text), members);
  }
}

}  // namespace
}  // namespace veldra
