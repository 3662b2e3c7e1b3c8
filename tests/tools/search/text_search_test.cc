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
        "INSERT INTO files (id, path, language, hash) VALUES (1, 'a.c', 'C', 'x'),"
        " (2, 'b.c', 'C', 'x')");
    index.execute(
        "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact) VALUES"
        " (1048576, 'one' || char(10) || 'two' || char(10), 1, 2, 1),"
        " (1048577, 'needle' || char(10), 3, 3, 1),"
        " (1048578, 'four' || char(10) || 'five' || char(10), 4, 5, 1),"
        " (2097152, 'needle_x HTTPNeedle needles needleTail', 1, 1, 1)");
    for (const char* name : {"needle_x", "HTTPNeedle", "needles", "a"}) {
      index.execute("INSERT INTO symbols (file_id, name, fqn, kind) VALUES (2, ?, ?, 'variable')",
                    {name, name});
    }
  }

  /// "file:line" of each hit, with the lines around it.
  std::vector<std::string> found(const std::string& text, std::int64_t limit,
                                 std::int64_t context) {
    std::vector<std::string> all;
    const SearchOptions options{text, false, {}, limit, context};
    std::vector<Hit> hits;
    index.snapshot([&](Snapshot& state) { hits = TextSearch(state, options).run(); });
    for (const Hit& hit : hits) {
      std::string shown;
      for (const MarkedLine& line : hit.before) shown += line.text + " ";
      shown += hit.file + ":" + std::to_string(hit.line.number);
      for (const MarkedLine& line : hit.after) shown += " " + line.text;
      all.push_back(shown + " +" + std::to_string(hit.line.hits.size()));
    }
    return all;
  }

  TempDatabase database;
  Database& index = database.db;
};

TEST_F(TextSearchTest, ShowsTheLinesOfTheChunksBeforeAndBehind) {
  EXPECT_THAT(found("needle", 20, 1), ElementsAre("two a.c:3 four +1", "b.c:1 +2"))
      << "the word itself comes first, then names of which it is a part, and nothing else in them";
  EXPECT_THAT(found("needle", 1, 9), ElementsAre("one two a.c:3 four five +1"));
  EXPECT_THAT(found("four", 20, 0), ElementsAre("a.c:4 +1"));
}

TEST_F(TextSearchTest, NamesWithAPartComeShortestFirstUpToTheLimit) {
  index.snapshot([](Snapshot& state) {
    EXPECT_THAT(names_with_part(state, "needle", 9), ElementsAre("needle_x", "HTTPNeedle"));
    EXPECT_THAT(names_with_part(state, "needle", 1), ElementsAre("needle_x"));
    EXPECT_THAT(names_with_part(state, "a", 9), ElementsAre("a"));
    EXPECT_THAT(names_with_part(state, "", 9), ElementsAre());
  });
}

}  // namespace
}  // namespace veldra::tool
