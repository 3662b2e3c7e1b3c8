// From a file's bytes to its text, its chunks and its stamp.
#include <gtest/gtest.h>

#include "tools/program/tool_runner.h"
#include "veldra-index/parse/chunker.h"
#include "veldra-index/tree/encoding.h"
#include "veldra-index/tree/source_file.h"

namespace veldra::tool {
namespace {

TEST(SourceTextTest, DecodesWhatIsNotUtf8AndLeavesWhatIsNoTextAlone) {
  using namespace std::string_literals;
  // What is read of the bytes, after "~" where they had to be decoded.
  const std::pair<std::string, std::string> cases[] = {
      {"plain\r\n", "plain\r\n"},
      {"a\ncaf\xE9\n", "~a\ncafé\n"},
      {"\xEF\xBB\xBFmark\xEF\xBB\xBF", "~mark\xEF\xBB\xBF"},
      {"\377\376a\0\351\0"s, "~aé"},
      {"\xFE\xFF\xD8\x3D\xDE\x00\0!"s, "~😀!"},
      {"\xFF\xFE\x3D\xD8"s, "~\xEF\xBF\xBD"},
      {"a\0b"s, "binary"},
      {std::string(8000, ' ') + "\0b"s, std::string(8000, ' ') + "\0b"s}};
  const ToolTree tree;
  for (const auto& [bytes, read] : cases) {
    tree.write("f", bytes);
    const SourceText source = read_source(tree.path(""), {"f", 0, 0});
    const bool binary = source.kind == SourceText::Kind::Binary;
    EXPECT_EQ((source.exact ? "" : "~") + source.text + (binary ? "binary" : ""), read);
  }
  for (const char* bad : {"12345678\xE9zzzzzzzz", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80",
                          "\xF4\x90\x80\x80", "\xE2\x82", "\xF0\x9F\x98", "\x80", "\xF5"}) {
    tree.write("f", bad);
    EXPECT_FALSE(read_source(tree.path(""), {"f", 0, 0}).exact) << bad << " is no UTF-8";
  }
  std::filesystem::create_symlink("f", tree.path("link"));
  std::filesystem::resize_file(tree.path("f"), MAX_FILE_BYTES + 1);
  EXPECT_EQ(read_source(tree.path(""), {"link", 0, 0}).problem.value().type, "io_error");
  EXPECT_EQ(read_source(tree.path(""), {"f", 0, 0}).problem.value().type, "too_large");
}

/// The chunks as "first-last"; they must add up to the text.
std::string chunks_of(const std::string& text) {
  std::string shape;
  std::string whole;
  for (const Chunk& chunk : split_into_chunks(text, true)) {
    shape += (shape.empty() ? "" : " ") + std::to_string(chunk.start_line) + "-" +
             std::to_string(chunk.end_line);
    whole += chunk.text;
  }
  EXPECT_EQ(whole, text) << "text was lost or doubled";
  return shape;
}

TEST(ChunkerTest, CoversEveryLineOnce) {
  const std::string lines(80, '\n');
  const std::string half(CHUNK_TARGET_BYTES * 2 / 3, 'x');
  const std::string wide(CHUNK_TARGET_BYTES, 'y');
  const std::pair<std::string, std::string_view> cases[] = {
      {"", ""},
      {"one", "1-1"},
      {lines, "1-40 41-80"},
      {lines + "end", "1-40 41-80 81-81"},
      {half + "\n" + half + "\nend", "1-1 2-3"},
      {"a\n" + wide + "\nb\n", "1-1 2-2 3-3"}};
  for (const auto& [text, shape] : cases) EXPECT_EQ(chunks_of(text), shape) << text.substr(0, 30);
}

TEST(StampTest, IsUnchangedOnlyWithTheSameSizeAndASettledTime) {
  static constexpr std::int64_t MINUTE = 60'000'000'000;
  const std::string stamp = make_stamp("text", MINUTE, 2 * MINUTE);
  EXPECT_TRUE(is_unchanged(stamp, 4, {"f", 4, MINUTE}));
  EXPECT_FALSE(is_unchanged(stamp, 4, {"f", 5, MINUTE}));
  EXPECT_FALSE(is_unchanged(stamp, 4, {"f", 4, MINUTE + 1}));
  const std::string at_once = make_stamp("text", MINUTE, MINUTE + 1'000'000'000);
  EXPECT_FALSE(is_unchanged(at_once, 4, {"f", 4, MINUTE})) << "it may change within a tick";
}

}  // namespace
}  // namespace veldra::tool
