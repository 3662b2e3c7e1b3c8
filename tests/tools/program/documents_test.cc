// Man page and completions offer what the parser takes, which its help shows: no more, no less.
#include <gmock/gmock.h>

#include <regex>
#include <set>

#include "tools/program/tool_runner.h"

namespace veldra::tool {
namespace {

using Names = std::set<std::string>;

Names names_in(const std::string& text, const std::string& pattern) {
  Names names;
  const std::regex regex(pattern);
  for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at)
    names.insert((*at)[1]);
  return names;
}

/// The part of `text` between the two, neither included.
std::string between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  if (from == std::string::npos) return {};
  const std::size_t behind = from + begin.size();
  return text.substr(behind, text.find(end, behind) - behind);
}

class DocumentsTest : public testing::Test {
 protected:
  std::string said(const std::vector<std::string>& arguments) const {
    const ToolRun done = tree.run(arguments);
    EXPECT_EQ(done.status, 0) << done.err;
    return done.out;
  }

  /// What the parser takes, without help and version.
  Names accepted(std::vector<std::string> command) const {
    command.emplace_back("--help");
    Names names = names_in("\n" + said(command), R"(\n  (?:-\w,)?(--[a-z-]+|-\w\b))");
    names.merge(names_in("\n" + said(command), R"(\n  (-\w),)"));
    for (const char* everywhere : {"-h", "--help", "--version"}) names.erase(everywhere);
    return names;
  }

  const ToolTree tree{};
  const std::string help = said({"--help"});
  const Names commands = names_in(between(help, "Subcommands:", "\n\n"), R"(\n  ([a-z]+))");
};

TEST_F(DocumentsTest, TheManPageNamesEveryCommandAndOption) {
  const std::string man =
      std::regex_replace(said({"--generate", "man"}), std::regex(R"(\\-)"), "-");
  const std::string option = R"(\\fB(--?[\w-]+)\\fR)";
  EXPECT_EQ(names_in(between(man, ".SH COMMANDS", ".SH OPTIONS"), R"(\.TP\n\\fB([a-z]+)\\fR)"),
            commands);
  for (const std::string& command : commands) {
    const std::string entry =
        between(man, ".TP\n\\fB" + command + "\\fR", "\n.TP\n\\fB" + std::string());
    const std::string own = entry.ends_with(".RS") ? between(man, entry, ".RE") : std::string();
    EXPECT_EQ(names_in(own, option), accepted({command})) << command;
  }
  Names common = names_in(between(man, ".SH OPTIONS", ".SH EXIT"), option);
  for (const char* everywhere : {"-h", "--help", "--version"})
    EXPECT_EQ(common.erase(everywhere), 1U);
  EXPECT_EQ(common, accepted({}));
}

TEST_F(DocumentsTest, BashCompletesWhatTheParserTakes) {
  std::ofstream(tree.path("completion")) << said({"--generate", "bash"});
  const auto complete = [&](const std::string& words) {
    const Captured answer =
        run_program({"bash", "-c",
                     "source completion; COMP_WORDS=(veldra-index " + words +
                         "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _veldra_index;"
                         " printf '%s\\n' \"${COMPREPLY[@]}\""},
                    tree.path(""));
    return names_in(answer.output, "(\\S+)");
  };
  EXPECT_THAT(complete("''"), testing::IsSupersetOf(commands));
  for (const std::string& command : commands) {
    Names all = accepted({command});
    all.merge(accepted({}));
    all.merge(Names{"-h", "--help"});
    EXPECT_EQ(complete(command + " -"), all) << command;
  }
  std::filesystem::create_directory(tree.path("folder"));
  EXPECT_EQ(complete("--color ''"), (Names{"auto", "always", "never"}));
  EXPECT_EQ(complete("errors compl"), Names{"completion"}) << "no file is offered";
  EXPECT_EQ(complete("update ''"), Names{"folder"}) << "only a directory will do";
  EXPECT_EQ(complete("search --limit ''"), Names{}) << "nobody knows which number";
}

}  // namespace
}  // namespace veldra::tool
