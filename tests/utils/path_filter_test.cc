// Paths are judged by whole components, patterns in bounded time, and SQL gets the same answers.
#include "veldra/utils/path_filter.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_database.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

struct Case {
  std::string_view path;
  std::string_view other;
  bool answer;
};

TEST(PathFilterTest, UnderComparesWholeComponents) {
  static constexpr Case cases[] = {
      {"src/store/a.cc", "src", true},
      {"src/store", "src/store", true},
      {"src/store", "src/st", false},
      {"src", "src/store", false},
      {"src/a", "./src//", true},
      {"src//./a", "src/a/", true},
      {"src/a", "", true},
      {"src/a", ".", true},
      {"/src/a", "", false},
      {"/src/a", "/", true},
      {"/src/a", "/src", true},
      {"src/a", "/src", false},
      {"src/../a", "src", true},
      {"Src/a", "src", false},
      {"s%c_x/a", "s%c_x", true},
      {"", "", true},
      {"", "src", false},
      {"it's/a", "it's", true},
  };
  for (const auto& [path, directory, answer] : cases)
    EXPECT_EQ(path_is_under(path, directory), answer) << path << " under " << directory;
}

TEST(PathFilterTest, PatternsMatchTheWholePath) {
  static constexpr Case cases[] = {
      {"a.cc", "*.cc", true},
      {"src/a.cc", "*.cc", false},
      {"src/a.cc", "src/*", true},
      {"src/x/a.cc", "src/*", false},
      {"src/x/y/a.cc", "src/**/*.cc", true},
      {"src/a.cc", "src/**/*.cc", true},
      {"a.cc", "**/*.cc", true},
      {"src", "src/**", true},
      {"src/x/y", "src/**", true},
      {"srcs/x", "src/**", false},
      {"a/b/c/b/d", "**/b/d", true},
      {"a/b/c/b/e/d", "**/b/*/d", true},
      {"a/b/c/d", "**/b/d", false},
      {"a/x/b/y/c", "a/**/b/**/c", true},
      {"a/x/y/c", "a/**/b/**/c", false},
      {"axxb", "a**b", true},
      {"ax/b", "a**b", false},
      {"ab", "a*b", true},
      {"abcbd", "a*b", false},
      {"abab", "*ab", true},
      {"a", "?", true},
      {"", "?", false},
      {"a/b", "a?b", false},
      {"gr\xc3\xbcn", "gr?n", true},
      {"\xff\xfe", "??", true},
      {"b", "[a-c]", true},
      {"d", "[a-c]", false},
      {"d", "[!a-c]", true},
      {"d", "[^a-c]", true},
      {"]", "[]]", true},
      {"x", "[!]]", true},
      {"-", "[a-]", true},
      {"]", "[\\]]", true},
      {"\xc3\xbc", "[\xc3\xa0-\xc3\xbf]", true},
      {"[a", "[a", false},
      {"[a", "\\[a", true},
      {"*", "\\*", true},
      {"x", "\\*", false},
      {"\\", "\\", true},
      {"A", "a", false},
      {"", "", true},
      {"", "**", true},
      {"a", "", false},
      {"/a/b", "/a/*", true},
      {"/a/b", "**", false},
      {"./a//b/", "a/b", true},
  };
  for (const auto& [path, pattern, answer] : cases)
    EXPECT_EQ(path_matches(path, pattern), answer) << path << " like " << pattern;
}

TEST(PathFilterTest, APatternMeantToTakeForeverEndsAtOnce) {
  std::string stars;
  std::string directories;
  std::string sets;
  for (int i = 0; i < 200; ++i) {
    stars += "*a";
    directories += "**/a/";
    sets += "*[[[";
  }
  const std::string path(2000, 'a');
  std::string deep;
  for (int i = 0; i < 1000; ++i) deep += "a/";
  EXPECT_FALSE(path_matches(path, stars + "b"));
  EXPECT_FALSE(path_matches(deep, directories + "b"));
  EXPECT_FALSE(path_matches(path, sets));
}

TEST(PathFilterTest, SqlFindsTheFunctionsOnEveryConnectionAndInTheSchema) {
  TempDatabase db;
  db->execute("INSERT INTO files (path, language, hash) VALUES ('src/a', '', ''), ('b', '', '')");
  // Only functions known to be harmless may stand in a view of an untrusted schema.
  db->execute("CREATE VIEW below AS SELECT path FROM files WHERE path_under(path, 'src')");
  EXPECT_EQ(dump(*db, "SELECT * FROM below"), "src/a");
  db->execute("CREATE INDEX by_glob ON files (path_glob(path, '*'))");
  EXPECT_EQ(dump(*db, "SELECT path FROM files WHERE path_glob(path, '*') = 1"), "b");
  EXPECT_EQ(dump(*db,
                 "SELECT path_under(NULL, 'a'), path_glob('a', NULL), path_glob(12, '1?'),"
                 " path_under(x'612f62', 'a'), path_glob('a' || char(0), 'a')"),
            "NULL|NULL|1|1|0");
  EXPECT_THROW(db->fetchone("SELECT path_under('a')"), OperationalError);
}

}  // namespace
}  // namespace veldra
