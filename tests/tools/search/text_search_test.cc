// Searches in an index of a few rows.
#include "veldra-index/search/text_search.h"

#include <gmock/gmock.h>

#include "support/temp_database.h"
#include "veldra-index/search/name_parts.h"

namespace veldra::tool {
namespace {

using testing::ElementsAre;

class TextSearchTest : public testing::Test {
 protected:
  TextSearchTest() {
    index.execute(
        "INSERT INTO files (id, path, language, hash) VALUES (1, 'vendor/a.c', 'C', 'x'),"
        " (2, 'src/b.c', 'C', 'x'), (3, 'src/c.py', 'Python', 'x')");
    for (const auto& [id, first, last, text] :
         {std::tuple<int, int, int, const char*>{1048576, 1, 2, "one\ntwo\n"},
          {1048577, 3, 3, "needle\n"},
          {1048578, 4, 5, "four\nfive\n"},
          {2097152, 1, 4, "kneedled x\nHTTPNeedle x\nuse(needle) x\nint Needle;\n"},
          {3145728, 1, 3, "über-needle, uber\nsay \"no\"\nNEEDLE\n"},
          {3145729, 4, 4, "far away"}}) {
      index.execute(
          "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact) VALUES (?, ?, ?, ?, "
          "1)",
          {id, text, first, last});
    }
    for (const char* name : {"Needle", "needle_x", "HTTPNeedle", "needles", "a"}) {
      index.execute(
          "INSERT INTO symbols (file_id, name, fqn, kind, start_line)"
          " VALUES (2, ?, ?, 'variable', 4)",
          {name, name});
    }
  }

  Findings run(SearchOptions options) {
    ReadIndex state({database.directory.path(), index.db_path});
    options.threads = 3;
    return TextSearch(state, options).run();
  }

  /// "file:line" of each hit, with the lines around it, and how many lines of how many.
  std::string found(const SearchOptions& options) {
    std::string all;
    const Findings findings = run(options);
    for (const Hit& hit : findings.hits) {
      for (const MarkedLine& line : hit.before) all += "(" + line.text + ")";
      all += hit.file.substr(hit.file.find('/') + 1) + ":" + std::to_string(hit.line.number);
      for (const MarkedLine& line : hit.after) all += "(" + line.text + ")";
      all += " ";
    }
    return all + "of " + std::to_string(findings.lines);
  }

  TempDatabase database;
  Database& index = database.db;
};

TEST_F(TextSearchTest, AnswersInSteps) {
  using Syntax = SearchOptions::Syntax;
  const auto plain = [](std::string text) {
    SearchOptions options;
    options.text = std::move(text);
    return options;
  };
  const auto with = [](SearchOptions options, auto change) {
    options.context = 0;
    change(options);
    return options;
  };
  const auto quiet = [&](std::string text) { return with(plain(std::move(text)), [](auto&) {}); };
  const auto fixed = [&](std::string text) {
    return with(plain(std::move(text)), [](auto& options) { options.syntax = Syntax::Fixed; });
  };
  const std::pair<SearchOptions, std::string_view> cases[] = {
      {quiet("Needle"), "b.c:4 c.py:1 c.py:3 b.c:3 a.c:3 b.c:2 b.c:1 of 7"},
      {quiet("eedle"), "b.c:1 b.c:2 b.c:3 b.c:4 c.py:1 c.py:3 a.c:3 of 7"},
      {with(plain("needle"), [](auto& o) { o.limit = 1; }), "c.py:1 of 5"},
      {with(plain("needle"), [](auto& o) { o.whole_words = true; }),
       "c.py:1 c.py:3 b.c:3 b.c:4 a.c:3 of 5"},
      {with(plain("needle"), [](auto& o) { o.case_counts = true; }),
       "c.py:1 b.c:3 a.c:3 b.c:1 of 4"},
      {with(plain("needle"), [](auto& o) { o.below = "vendor"; }), "a.c:3 of 1"},
      {with(plain("eedle"), [](auto& o) { o.path = "src/*.py"; }), "c.py:1 c.py:3 of 2"},
      {with(plain("eedle"), [](auto& o) { o.language = "python"; }), "c.py:1 c.py:3 of 2"},
      {plain("needle five"), "(two)a.c:3(four) (four)a.c:5 of 2"},
      {with(plain("four"), [](auto& o) { o.context = 9; }), "(one)(two)(needle)a.c:4(five) of 1"},
      {quiet("uber"), "c.py:1 of 1"},
      {quiet("über"), "c.py:1 of 1"},
      {quiet("ü"), "c.py:1 of 1"},
      {quiet("(needle)"), "b.c:3 of 1"},
      {quiet("(need"), "b.c:3 of 1"},
      {quiet("eedle)"), "b.c:3 of 1"},
      {quiet("say \"no\""), "c.py:2 of 1"},
      {quiet("\"far away\""), "c.py:4 of 1"},
      {fixed("e x"), "b.c:2 of 1"},
      {fixed("needle"), "c.py:1 c.py:3 b.c:1 b.c:2 b.c:3 b.c:4 a.c:3 of 7"},
      {with(fixed("NEEDLE"), [](auto& o) { o.case_counts = true; }), "c.py:3 of 1"},
      {with(plain("^far\\s"), [](auto& o) { o.syntax = Syntax::Regex; }), "c.py:4 of 1"},
      {with(plain("ed x$"), [](auto& o) { o.syntax = Syntax::Regex; }), "b.c:1 of 1"},
      {with(plain("NEAR(say no)"), [](auto& o) { o.syntax = Syntax::FullText; }), "c.py:2 of 1"},
  };
  for (const auto& [options, answer] : cases) EXPECT_EQ(found(options), answer) << options.text;
}

TEST_F(TextSearchTest, CountsTheLinesOfEachFileWhateverTheLimit) {
  SearchOptions options;
  options.text = "eedle";
  options.limit = 1;
  options.counts_files = true;
  const Findings found = run(options);
  using testing::Pair;
  EXPECT_THAT(found.files, testing::UnorderedElementsAre(Pair("src/b.c", 4), Pair("src/c.py", 2),
                                                         Pair("vendor/a.c", 1)));
}

TEST_F(TextSearchTest, NamesWithAPartComeShortestFirstUpToTheLimit) {
  ReadIndex state({database.directory.path(), index.db_path});
  EXPECT_THAT(names_with_part(state, "needle", 9), ElementsAre("Needle", "needle_x", "HTTPNeedle"));
  EXPECT_THAT(names_with_part(state, "needle", 1), ElementsAre("Needle"));
  EXPECT_THAT(names_with_part(state, "a", 9), ElementsAre("a"));
  EXPECT_THAT(names_with_part(state, "", 9), ElementsAre());
}

TEST(SecondaryFilesTest, AreGeneratedOrForeign) {
  for (const char* path :
       {"vendor/a.c", "x/node_modules/y/z.js", "a.min.js", "package-lock.json", "api_pb2.py"})
    EXPECT_TRUE(is_secondary(path)) << path;
  for (const char* path : {"a.c", "src/vendor.c", "invendor/a.c", "a.js"})
    EXPECT_FALSE(is_secondary(path)) << path;
}

}  // namespace
}  // namespace veldra::tool
