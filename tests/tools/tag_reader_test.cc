// One line of ctags' output, and what a file's tags become.
#include "veldra-index/tag_reader.h"

#include <gmock/gmock.h>

#include "veldra-index/parsed_file.h"

namespace veldra::tool {
namespace {

using testing::ElementsAre;

TEST(TagReaderTest, ReadsALineWhateverItHolds) {
  struct Case {
    std::string line;
    std::string_view name;
    int number;
  };
  const Case cases[] = {
      {R"({"_type": "tag", "name": "f", "line": 12, "kind": "function"})", "f", 12},
      {R"({"name": "a\"b\\c\/\n\t", "line": 1})", "a\"b\\c/\n\t", 1},
      {R"({"name": "\u00e9\u20ac\ud83d\ude00"})", "é€😀", 0},
      {"{\"name\": \"\xFF raw\"}", "\xFF raw", 0},
      {R"({"pattern": false, "x": null, "y": true, "line":-3,"name":"n"})", "n", -3},
      {R"({"name": "n", "line": 99999999999999999999})", "n", 0}};
  TagLine tag;
  for (auto [line, name, number] : cases) {
    tag = {};
    EXPECT_TRUE(read_tag_line(line, tag)) << line;
    EXPECT_EQ(tag.name, name);
    EXPECT_EQ(tag.line, number);
  }
  for (std::string broken :
       {"", "{", R"({"name": "cut)", R"({"name": "cut\)", R"({"name": "\u12"})",
        R"({"name": "\u12zz"})", R"({"name": "\ud83d"})", R"({"name": "\ude00"})",
        R"({"name": "n"} x)", R"({"name": "n", "scope": {"a": 1}})", R"({"name": "n", "line": })",
        R"(["name"])"})
    EXPECT_FALSE(read_tag_line(broken, tag)) << broken;
}

std::string tag(const std::string& name, const std::string& kind, int line, int end,
                const std::string& scope = {}) {
  std::string text = R"({"_type": "tag", "roles": "def", "name": ")" + name + R"(", "kind": ")" +
                     kind + R"(", "line": )" + std::to_string(line);
  if (end > 0) text += R"(, "end": )" + std::to_string(end);
  if (!scope.empty()) text += R"(, "scopeKind": "class", "scope": ")" + scope + "\"";
  return text + "}\n";
}

/// The symbols that `tags` become, each as "fqn<line of its parent", and the problems' types.
std::vector<std::string> symbols_of(const std::string& tags) {
  ParsedFile file;
  file.tags = R"({"_type": "tag", "name": "a.cc", "language": "C++", "kind": "file"})"
              "\n" +
              tags;
  read_tags(file);
  std::vector<std::string> result;
  for (const Symbol& symbol : file.symbols) {
    std::string text(symbol.fqn);
    if (symbol.parent != Symbol::NO_PARENT)
      text += "<" + std::to_string(file.symbols[symbol.parent].start_line);
    result.push_back(text);
  }
  for (const FileProblem& problem : file.problems) result.push_back(problem.type);
  return result;
}

TEST(ReadTagsTest, FindsTheParentThatLiesAround) {
  EXPECT_THAT(symbols_of(tag("m", "member", 2, 0, "A") + tag("A", "class", 1, 3)),
              ElementsAre("A::m<1", "A"))
      << "a member that came before its class lost it";
  EXPECT_THAT(symbols_of(tag("A", "class", 1, 3) + tag("A", "class", 5, 9) +
                         tag("m", "member", 2, 0, "A") + tag("n", "member", 6, 0, "A")),
              ElementsAre("A", "A", "A::m<1", "A::n<5"));
  EXPECT_THAT(symbols_of(tag("A", "class", 1, 3) + tag("A", "typedef", 1, 0) +
                         tag("m", "member", 1, 0, "A")),
              ElementsAre("A", "A", "A::m<1"))
      << "a type of another kind on the same line was taken, or counted as a collision";
  EXPECT_THAT(symbols_of(tag("f", "function", 9, 9, "elsewhere::A")),
              ElementsAre("elsewhere::A::f"));
  EXPECT_THAT(symbols_of(tag("A", "class", 1, 0) + tag("A", "class", 5, 0) +
                         tag("m", "member", 6, 0, "A") + tag("n", "member", 7, 0, "A")),
              ElementsAre("A", "A", "A::m<5", "A::n<5", "fqn_collision"))
      << "a guess is told once";
}

TEST(ReadTagsTest, TellsDefinitionsFromImportsAndWhatIsNoTag) {
  ParsedFile file;
  file.tags =
      R"({"_type": "tag", "name": "x.h", "kind": "header", "roles": "system", "line": 1}
{"_type": "tag", "name": "M", "kind": "macro", "roles": "undef", "line": 2}
{"_type": "tag", "name": "y", "kind": "unknown", "roles": "imported", "line": 3}
{"_type": "error", "message": "odd"}
{"_type": "tag", "na)";
  read_tags(file);
  ASSERT_EQ(file.imports.size(), 1U);
  EXPECT_TRUE(file.imports[0].module == "x.h" && file.imports[0].system);
  EXPECT_TRUE(file.symbols.empty());
  ASSERT_EQ(file.problems.size(), 2U) << "an error of ctags or a broken line was dropped";
  EXPECT_EQ(file.problems[0].message, "ctags: odd");
}

}  // namespace
}  // namespace veldra::tool
