// What the terminal gets: numbers, columns, colours, and no control characters of a repository's.
#include <gtest/gtest.h>

#include "veldra-index/terminal/error_text.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/style.h"
#include "veldra-index/terminal/table.h"
#include "veldra/errors.h"

namespace veldra::tool {
namespace {

TEST(StyleTest, LetsNoControlCharacterOfATextSteerTheTerminal) {
  EXPECT_EQ(one_line("a\tb\033[2J\x7F\n\r\x01é"), "a\tb [2J    é");
  EXPECT_EQ(Style(true).hit("x"), "\033[1;31mx\033[0m");
  EXPECT_EQ(Style(false).hit("x"), "x");
}

TEST(NumberTextTest, GroupsByThreeAndTakesTheUnitThatFits) {
  const std::pair<std::int64_t, std::string_view> counts[] = {
      {0, "0"},       {999, "999"},     {1000, "1,000"}, {1234567, "1,234,567"},
      {-999, "-999"}, {-1000, "-1,000"}};
  for (const auto& [number, text] : counts) EXPECT_EQ(with_commas(number), text);
  const std::pair<std::int64_t, std::string_view> sizes[] = {{1023, "1023 bytes"},
                                                             {1024, "1.0 KiB"},
                                                             {1536, "1.5 KiB"},
                                                             {1 << 20, "1.0 MiB"},
                                                             {std::int64_t{1} << 50, "1024.0 TiB"}};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(as_size(bytes), text);
}

TEST(TableTest, AlignsByCharactersWithNumbersToTheRight) {
  Table table({"name", "n"});
  table.add({"é", "1,000"});
  table.add({"longer", "-7"});
  table.add({"x", ""});
  testing::internal::CaptureStdout();
  table.print();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "name    n\né       1,000\nlonger     -7\nx\n");
}

TEST(ErrorTextTest, SaysWhatToDo) {
  const std::pair<int, std::string_view> cases[] = {
      {5, "try again"},        {3 << 8 | 10, "look at the disk"}, {11, "sets it aside"},
      {13, "free some space"}, {1 << 8 | 14, "writable"},         {26, "name another file"}};
  for (const auto& [code, advice] : cases) {
    const std::string text = error_text(Error("why", code), "i.db");
    EXPECT_TRUE(text.starts_with("i.db: why; ") && text.find(advice) != std::string::npos) << text;
  }
  EXPECT_EQ(error_text(Error("why", 1), "i.db"), "i.db: why");
  EXPECT_EQ(error_text(std::bad_alloc(), "i.db").substr(0, 14), "out of memory;");
  EXPECT_EQ(error_text(std::runtime_error("plain"), "i.db"), "plain");
}

}  // namespace
}  // namespace veldra::tool
