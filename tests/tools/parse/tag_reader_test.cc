// One line of ctags' output, whose tags they are, and what a file's tags become.
#include "veldra-index/parse/tag_reader.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <tuple>

#include "veldra-index/parse/tag_division.h"
#include "veldra-index/parse/tag_import.h"

namespace veldra::tool {
namespace {

using testing::ElementsAre;

TEST(TagReaderTest, ReadsALineWhateverItHolds) {
  const std::tuple<std::string, std::string_view, int> cases[] = {
      {R"({"_type": "tag", "name": "f", "line": 12, "kind": "function"})", "f", 12},
      {R"({"name": "a\"b\\c\/\n\t", "line": 1})", "a\"b\\c/\n\t", 1},
      {R"({"name": "\u00e9\u20ac\ud83d\ude00"})", "é€😀", 0},
      {"{\"name\": \"\xFF raw\"}", "\xFF raw", 0},
      {R"({"pattern": false, "x": null, "y": true, "line":-3,"name":"n"})", "n", -3},
      {R"({"name": "n", "line": 99999999999999999999})", "n", 0}};
  for (auto [line, name, number] : cases) {
    TagLine tag;
    EXPECT_TRUE(read_tag_line(line, tag)) << line;
    EXPECT_EQ(tag.name, name);
    EXPECT_EQ(tag.line, number);
  }
  TagLine tag;
  for (std::string broken :
       {"", "{", R"({"name": "cut)", R"({"name": "cut\)", R"({"name": "\u12"})",
        R"({"name": "\ud83d"})", R"({"name": "\ude00"})", R"({"name": "n"} x)",
        R"({"name": "n", "scope": {"a": 1}})", R"({"name": "n", "line": })"})
    EXPECT_FALSE(read_tag_line(broken, tag)) << broken;
}

std::string tag(const std::string& name, const std::string& kind, int line, int end,
                const std::string& scope = {}) {
  nlohmann::json tag = {{"_type", "tag"}, {"roles", "def"}, {"name", name}, {"kind", kind}};
  tag["line"] = line;
  if (end > 0) tag["end"] = end;
  if (!scope.empty()) tag.update({{"scopeKind", "class"}, {"scope", scope}});
  return tag.dump() + "\n";
}

TEST(TagDivisionTest, GivesEachFileItsTagsOrSaysThatItIsNotCertain) {
  const auto ending = [](const std::string& name) {
    return tag("in " + name, "function", 1, 1) + tag(name, "file", 1, 0);
  };
  const std::string main = ending("main.c");
  const std::string run = ending("r\"\"un");
  using Paths = std::vector<std::string_view>;
  using Tags = std::vector<std::string_view>;
  const std::tuple<std::string, Paths, std::optional<Tags>> cases[] = {
      {"", {"a/README", "b/README"}, Tags{"", ""}},
      {main + run, {"README", "a/main.c", "LICENSE", "r\"\"un"}, Tags{"", main, "", run}},
      {main + main, {"a/main.c", "b/main.c"}, Tags{main, main}},
      {main + run, {"a/r\"\"un", "b/main.c", "b/r\"\"un"}, Tags{"", main, run}},
      {run, {"a/r\"\"un", "LICENSE", "b/r\"\"un"}, std::nullopt},
      {main, {"other.c"}, std::nullopt},
      {main + main, {"main.c"}, std::nullopt},
      {main + tag("f", "function", 1, 1), {"main.c", "f.c"}, std::nullopt},
      {main + run.substr(0, run.size() - 1), {"main.c", "r\"\"un"}, std::nullopt}};
  for (const auto& [output, paths, tags] : cases)
    EXPECT_EQ(divide_tags(output, paths), tags) << output << testing::PrintToString(paths);
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
  for (const int length : {0, 1}) {
    std::vector<std::string> expected = {"A", "A", "A::m<5", "A::n<5"};
    if (length > 0) expected.emplace_back("fqn_collision");
    EXPECT_EQ(symbols_of(tag("A", "class", 1, length) + tag("A", "class", 5, 5 * length) +
                         tag("m", "member", 6, 0, "A") + tag("n", "member", 7, 0, "A")),
              expected)
        << "a guess is told once, and not where it is none";
  }
}

TEST(ReadTagsTest, TellsDefinitionsFromImportsAndWhatIsNoTag) {
  EXPECT_THAT(symbols_of(R"({"_type": "tag", "name": "x.h", "kind": "header", "roles": "system"}
{"_type": "tag", "name": "M", "kind": "macro", "roles": "undef", "line": 2}
{"_type": "tag", "name": "y", "kind": "unknown", "roles": "imported", "line": 3}
{"_type": "error", "message": "odd"}
{"_type": "tag", "na)"),
              ElementsAre("partial_parse", "partial_parse"));
}

}  // namespace
}  // namespace veldra::tool
