// From a file's bytes to its text, its chunks and its stamp.
#include <gtest/gtest.h>

#include "tools/tool_runner.h"
#include "veldra-index/chunker.h"
#include "veldra-index/source_file.h"
#include "veldra-index/utf8.h"

namespace veldra::tool {
namespace {

using Kind = SourceText::Kind;

TEST(SourceTextTest, TellsTextFromBinaryAndDecodesWhatIsNotUtf8) {
  struct Case {
    std::string bytes;
    Kind kind;
    std::string_view text;
    bool exact;
    std::int64_t bad_line;  // 0 without a problem
  };
  using namespace std::string_literals;
  const Case cases[] = {
      {"", Kind::Text, "", true, 0},
      {"plain\r\n", Kind::Text, "plain\r\n", true, 0},
      {"a\ncaf\xE9\n", Kind::Text, "a\ncafé\n", false, 2},
      {"\xEF\xBB\xBFmark", Kind::Text, "\xEF\xBB\xBFmark", true, 0},
      {"\xFF\xFE"
       "a\0\xE9\0"s,
       Kind::Text, "aé", false, 0},
      {"\xFE\xFF\xD8\x3D\xDE\x00\0!"s, Kind::Text, "😀!", false, 0},
      {"\xFF\xFE\x3D\xD8"s, Kind::Text, "\xEF\xBF\xBD", false, 0},
      {"a\0b"s, Kind::Binary, "", true, 0},
      {std::string(9000, 'x') + '\0', Kind::Binary, "", true, 0},
  };
  const ToolTree tree;
  for (const Case& now : cases) {
    SCOPED_TRACE(now.bytes.substr(0, 20));
    tree.write("f", now.bytes);
    const SourceText source = read_source(tree.path(""), {"f", 0, 0});
    EXPECT_EQ(source.kind, now.kind);
    EXPECT_EQ(source.text, now.text);
    EXPECT_EQ(source.exact, now.exact);
    EXPECT_EQ(source.problem ? source.problem->line.value_or(-1) : 0, now.bad_line);
  }
}

TEST(SourceTextTest, OpensNeitherLinksNorWhatIsTooLarge) {
  const ToolTree tree;
  tree.write("real", "x");
  std::filesystem::create_symlink("real", tree.path("link"));
  tree.write("large", "x");
  std::filesystem::resize_file(tree.path("large"), MAX_FILE_BYTES + 1);
  EXPECT_EQ(read_source(tree.path(""), {"link", 0, 0}).problem.value().type, "io_error");
  EXPECT_EQ(read_source(tree.path(""), {"gone", 0, 0}).problem.value().type, "io_error");
  EXPECT_EQ(read_source(tree.path(""), {"large", 0, 0}).problem.value().type, "too_large");
}

TEST(SourceTextTest, FindsTheFirstByteThatIsNoUtf8) {
  struct Case {
    std::string_view text;
    std::size_t position;
  };
  static constexpr auto NONE = std::string_view::npos;
  static constexpr Case cases[] = {{"ascii only, more than eight", NONE},
                                   {"é€😀", NONE},
                                   {"\xC0\x80", 0},
                                   {"12345678\xE9", 8},
                                   {"\xE0\x80\x80", 0},
                                   {"\xED\xA0\x80", 0},
                                   {"\xF4\x90\x80\x80", 0},
                                   {"a\xE2\x82", 1},
                                   {"\xF0\x9F\x98", 0},
                                   {"\x80", 0},
                                   {"abc\xF5zzzzzzzz", 3}};
  for (const auto& [text, position] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(find_invalid_utf8(text), position);
  }
}

/// The chunks as "first-last", with "!" where one is not exact; they must add up to the text.
std::string chunks_of(const std::string& text) {
  std::string shape;
  std::string whole;
  for (const Chunk& chunk : split_into_chunks(text, true)) {
    shape += (shape.empty() ? "" : " ") + std::to_string(chunk.start_line) + "-" +
             std::to_string(chunk.end_line) + (chunk.exact ? "" : "!");
    whole += chunk.text;
    EXPECT_LE(chunk.text.size(), CHUNK_MAX_BYTES);
    EXPECT_EQ(find_invalid_utf8(chunk.text), std::string_view::npos) << "a character was cut";
  }
  EXPECT_EQ(whole, text) << "text was lost or doubled";
  return shape;
}

std::string lines(int count) {
  std::string text;
  for (int line = 1; line <= count; ++line) text += std::to_string(line) + "\n";
  return text;
}

TEST(ChunkerTest, CoversEveryLineOnce) {
  const std::string half(CHUNK_MAX_BYTES * 2 / 3, 'x');
  std::string wide;
  while (wide.size() <= CHUNK_MAX_BYTES) wide += "€";
  struct Case {
    std::string text;
    std::string_view shape;
  };
  const Case cases[] = {{"", ""},
                        {"one", "1-1"},
                        {"\n", "1-1"},
                        {lines(40), "1-40"},
                        {lines(41), "1-40 41-41"},
                        {lines(80) + "end", "1-40 41-80 81-81"},
                        {half + "\n" + half + "\nend", "1-1 2-3"},
                        {"a\n" + wide + "\nb\n", "1-1 2-2! 2-2! 3-3"},
                        {std::string(CHUNK_MAX_BYTES, 'y') + "\n", "1-1! 1-1!"},
                        {std::string(CHUNK_MAX_BYTES, 'y'), "1-1"}};
  for (const auto& [text, shape] : cases) EXPECT_EQ(chunks_of(text), shape) << text.substr(0, 30);
}

TEST(StampTest, IsUnchangedOnlyWithTheSameSizeAndASettledTime) {
  static constexpr std::int64_t MINUTE = 60'000'000'000;
  const std::string stamp = make_stamp("text", MINUTE, 2 * MINUTE);
  EXPECT_TRUE(is_unchanged(stamp, 4, {"f", 4, MINUTE}));
  EXPECT_FALSE(is_unchanged(stamp, 4, {"f", 5, MINUTE}));
  EXPECT_FALSE(is_unchanged(stamp, 4, {"f", 4, MINUTE + 1}));
  const std::string unsettled = make_stamp("text", MINUTE, MINUTE + 1'000'000'000);
  EXPECT_FALSE(is_unchanged(unsettled, 4, {"f", 4, MINUTE}))
      << "a file may change again in one tick";
  EXPECT_EQ(content_of_stamp(unsettled), content_of_stamp(stamp));
  EXPECT_NE(content_of_stamp(make_stamp("texu", MINUTE, 2 * MINUTE)), content_of_stamp(stamp));
  EXPECT_FALSE(is_unchanged("a stamp of others", 4, {"f", 4, 0}));
}

}  // namespace
}  // namespace veldra::tool
