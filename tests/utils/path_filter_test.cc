// Paths are judged by whole components, patterns in bounded time, and SQL gets the same answers.
#include "veldra/utils/path_filter.h"

#include <gtest/gtest.h>

#include <string>

#include "support/split.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

/// One right-hand side with paths, separated by blanks, for which the answer is yes or no.
struct Case {
  std::string_view against;
  std::string_view yes;
  std::string_view no;
};

void expect_answers(bool (*answer)(std::string_view, std::string_view), const Case& one) {
  for (const auto& [paths, expected] : {std::pair(one.yes, true), std::pair(one.no, false)})
    for (const std::string_view path : split(paths, " "))
      EXPECT_EQ(answer(path, one.against), expected) << path << " against " << one.against;
}

TEST(PathFilterTest, UnderComparesWholeComponents) {
  static constexpr Case CASES[] = {
      {"src", "src src/ src/store/a.cc src//./a src/../a ./src/a", "src2/a Src/a s /src/a ../src"},
      {"./src//a/", "src/a/b src//a", "src src/ab"},
      {"", "src/a . a/", "/src /"},
      {"/", "/src/a /", "src/a"},
      {"/src", "/src/a", "src/a /srcs"},
      {"it's_100%", "it's_100%/a", "it'sX100%/a it's_1000/a"}};
  for (const Case& one : CASES) expect_answers(path_is_under, one);
}

TEST(PathFilterTest, PatternsMatchTheWholePath) {
  static constexpr Case CASES[] = {{"*.cc", "a.cc .cc ./a.cc", "src/a.cc a.c a.ccc A.CC /a.cc"},
                                   {"src/*", "src/a src//b", "src src/x/a"},
                                   {"src/**/*.cc", "src/a.cc src/x/y/a.cc", "src/x/a.h lib/a.cc"},
                                   {"src/**", "src src/x/y", "srcs/x lib/src"},
                                   {"**/b/*/d", "a/b/c/b/e/d", "b/d"},
                                   {"*a*b", "ab aab xaxbab", "a ba"},
                                   {"a?b", "axb a\303\274b a\377b", "a/b ab axxb"},
                                   {"[a-c_]", "a b c _", "d - B"},
                                   {"[!a-c]x", "dx \xc3\xbcx", "ax x /x"},
                                   {"[\xc3\xa0-\xc3\xbf]", "\xc3\xbc", "\xc2\xbc u"},
                                   {"\\[\\*", "[*", "\\[* [x"},
                                   {"**", "a a/b", "/a"},
                                   {"[]a-]", "] a -", "b"}};
  for (const Case& one : CASES) expect_answers(path_matches, one);
  EXPECT_FALSE(path_matches("[a", "[a")) << "a set that is never closed matched";
}

TEST(PathFilterTest, APatternMeantToTakeForeverEndsAtOnce) {
  std::string letters, stars, folders, double_stars;
  for (int i = 0; i < 200; ++i) {
    letters += "aaaaaaaaaa";
    stars += "*a";
    folders += "a/a/a/a/a/";
    double_stars += "**/a/";
  }
  EXPECT_FALSE(path_matches(letters, stars + "b"));
  EXPECT_FALSE(path_matches(folders, double_stars + "b"));
}

TEST(PathFilterTest, SqlFindsTheFunctionsOnEveryConnectionAndInTheSchema) {
  TempDatabase db;
  db->execute("INSERT INTO files (path, language, hash) VALUES ('src/a', '', ''), ('b', '', '')");
  // Where a host trusts no schema, only functions known to be harmless may stand in it.
  db->execute("PRAGMA trusted_schema=OFF");
  db->execute("CREATE VIEW below AS SELECT path FROM files WHERE path_under(path, 'src')");
  EXPECT_EQ(dump(*db->connection(), "SELECT * FROM below"), "src/a");
  db->execute("CREATE INDEX by_glob ON files (path_glob(path, '*'))");
  EXPECT_EQ(dump(*db, "SELECT path FROM files WHERE path_glob(path, '*') = 1"), "b");
  EXPECT_EQ(dump(*db,
                 "SELECT path_under(NULL, 'a'), path_glob('a', NULL), path_glob(12, '1?'),"
                 " path_under(x'612f62', 'a'), path_glob('a' || char(0), 'a')"),
            "NULL|NULL|1|1|0");
}

}  // namespace
}  // namespace veldra
