// The program as its users meet it.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <random>
#include <thread>

#include "faults/measured.h"
#include "tools/program/tool_runner.h"
#include "veldra/sqlite/connection.h"

namespace veldra::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* FILES = "SELECT path FROM files ORDER BY path";
/// Everything in the index, without its ids.
constexpr const char* CONTENT =
    "SELECT f.path, language, substr(hash, 1, 16), size, coalesce(c.name, '-') FROM files f"
    " LEFT JOIN components c ON c.id = component_id"
    " UNION ALL SELECT f.path, s.name, fqn, s.kind || start_line, coalesce(p, '-') FROM"
    " (SELECT s.*, (SELECT name FROM symbols WHERE id = s.parent_id) AS p FROM symbols s) s"
    " JOIN files f ON f.id = s.file_id"
    " UNION ALL SELECT f.path, g.path, e.kind, e.line, 'edge' FROM edges e"
    " JOIN symbols s ON s.id = source_id JOIN files f ON f.id = s.file_id"
    " JOIN symbols t ON t.id = target_id JOIN files g ON g.id = t.file_id"
    " UNION ALL SELECT f.path, module, line, '', 'external' FROM external_imports"
    " JOIN files f ON f.id = file_id"
    " UNION ALL SELECT f.path, text, start_line, end_line, exact FROM code_chunks"
    " JOIN files f ON f.id = code_chunks.rowid / 1048576"
    " UNION ALL SELECT file_path, error_type, message, line, 'error' FROM index_errors"
    " ORDER BY 1, 2, 3, 4, 5";

/// A small project, and its index.
class ProjectTest : public testing::Test {
 protected:
  ProjectTest() {
    tree.write("src/main.cc",
               "#include \"util/swap.h\"\n#include <vector>\n"
               "int main() { return util::swap_index_from(1); }\n");
    tree.write("src/util/swap.h",
               "namespace util {\nstruct SwapIndexFrom { int part; };\n"
               "inline int swap_index_from(int) { return 0; }\n}\n");
    tree.write("tool/run.py", "import pkg.mod\nclass Runner:\n    def go(self): pass\n");
    tree.write("pkg/mod.py", "NAME = 1\n");
    tree.write("notes.txt", "say foo->bar to user@host in C++\n");
    EXPECT_EQ(tree.run({"rebuild"}).status, 0);
  }

  ToolTree tree;
};

TEST_F(ProjectTest, ARebuildFillsEveryTable) {
  tree.write("bad.c", "int caf\xE9;\n");
  EXPECT_EQ(tree.json({"rebuild"})["errors"], 1);
  EXPECT_THAT(tree.rows("SELECT name FROM components ORDER BY name"),
              ElementsAre("pkg", "src", "tool"));
  EXPECT_THAT(tree.rows("SELECT s.fqn, p.name FROM symbols s JOIN symbols p ON p.id = s.parent_id"
                        " AND p.file_id = s.file_id ORDER BY s.fqn"),
              ElementsAre("Runner.go|Runner", "util::SwapIndexFrom|util",
                          "util::SwapIndexFrom::part|SwapIndexFrom", "util::swap_index_from|util"));
  EXPECT_THAT(tree.rows(CONTENT),
              testing::IsSupersetOf({"src/main.cc|src/util/swap.h|import|1|edge",
                                     "src/main.cc|vector|2||external",
                                     "tool/run.py|pkg/mod.py|import|1|edge",
                                     "bad.c|decode_error|not UTF-8; read as Latin-1|1|error",
                                     "pkg/mod.py|NAME = 1\n|1|1|1", "bad.c|int café;\n|1|1|0"}));
  EXPECT_EQ(tree.run({"check"}).status, 0);
  EXPECT_TRUE(tree.holds_nothing_beside_the_index());

  const std::vector<std::string> swapped_in = tree.rows(CONTENT);
  std::filesystem::remove(tree.index());
  ASSERT_EQ(tree.run({"rebuild"}).status, 0);
  EXPECT_EQ(tree.rows(CONTENT), swapped_in) << "the first index of a tree differs from the next";
}

TEST(RebuildTest, TakesTheFilesThatGitWouldAndLeavesTheIndexAlone) {
  ToolTree tree;
  tree.write("kept.c", "");
  tree.write(".hidden.c", "");
  tree.write("build/made.c", "");
  tree.write("data.bin", std::string("\0\1", 2));
  std::filesystem::create_symlink("/etc", tree.path("etc"));
  std::filesystem::create_symlink("kept.c", tree.path("link.c"));
  ASSERT_EQ(::mkfifo(tree.path("pipe.c").c_str(), 0600), 0);
  for (int pass = 0; pass < 2; ++pass) ASSERT_EQ(tree.run({"rebuild"}).status, 0);
  EXPECT_THAT(tree.rows(FILES), ElementsAre("build/made.c", "kept.c"));

  tree.write(".gitignore", "build/\n");
  ASSERT_EQ(run_program({"git", "init", "-q", tree.path("").string()}).status, 0);
  ASSERT_EQ(tree.run({"rebuild"}).status, 0);
  EXPECT_THAT(tree.rows(FILES), ElementsAre(".gitignore", ".hidden.c", "kept.c"));
  ASSERT_EQ(tree.run({"rebuild", "build", "--db", "build/i.db"}).status, 0);
  EXPECT_EQ(tree.json({"stats", "build", "--db", "build/i.db"})["files"], 1)
      << "an ignored folder that was asked for was taken for empty, or its index was indexed";
}

TEST(RebuildTest, GoesOnBehindFilesThatKillCtagsOrKeepIt) {
  ToolTree tree;
  tree.use_stand_in_ctags();
  for (const char* name : {"a.c", "b.c", "crash.c", "d.c", "e.c", "hang.c", "i.c"})
    tree.write(name, "text\n");
  ASSERT_EQ(tree.run({"rebuild", "--jobs", "1", "--file-limit", "1"}).status, 0);
  EXPECT_THAT(tree.rows("SELECT name FROM symbols WHERE kind = 'function' ORDER BY name"),
              ElementsAre("in_a.c", "in_b.c", "in_d.c", "in_e.c", "in_i.c"));
  EXPECT_THAT(tree.rows("SELECT file_path, error_type FROM index_errors ORDER BY 1"),
              ElementsAre("crash.c|parse_error", "hang.c|parse_timeout"));
  EXPECT_EQ(tree.rows(FILES).size(), 7U) << "their text is of use all the same";
}

TEST(NoChildrenTest, AChildThatIsStartedMeanwhileEndsAtOnce) {
  ChildProcess before({"sleep", "60"}, ".");
  EXPECT_FALSE(before.wait_for(std::chrono::milliseconds(20)));
  {
    const NoChildren no_children;
    EXPECT_EQ(before.wait(), 128 + SIGKILL);
    EXPECT_EQ(run_program({"sleep", "60"}).status, 128 + SIGKILL);
  }
  EXPECT_EQ(run_program({"true"}).status, 0);
}

TEST_F(ProjectTest, ARebuildIsRefusedWhileAnotherRunsAndCleansUpWhenInterrupted) {
  const std::vector<std::string> before = tree.rows(CONTENT);
  tree.use_stand_in_ctags();
  tree.write("hang.c", "");
  const std::filesystem::path lock = tree.index().string() + ".lock";
  const std::filesystem::path staging = tree.index().string() + ".staging";
  for (const int signal_number : {SIGINT, SIGTERM}) {
    const auto first = tree.start({"rebuild"});
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(staging); }));
    const std::string pid = read_text(lock);
    const ToolRun second = tree.run({"rebuild"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, HasSubstr("process " + pid + " is building this index"));
    EXPECT_TRUE(std::filesystem::exists(staging)) << "the second took the first one's file away";
    ASSERT_EQ(::kill(std::stoi(pid), signal_number), 0);
    EXPECT_EQ(first->wait(), 128 + signal_number);
    EXPECT_FALSE(std::filesystem::exists(staging));
    EXPECT_FALSE(std::filesystem::exists(lock));
  }
  EXPECT_EQ(tree.rows(CONTENT), before);
}

TEST_F(ProjectTest, ADamagedIndexIsSetAsideAndANewersIsLeftAlone) {
  const std::vector<std::string> whole = tree.rows(CONTENT);
  for (const std::streamoff damaged_from : {0, 16'384}) {
    const auto size = static_cast<std::streamoff>(std::filesystem::file_size(tree.index()));
    std::fstream(tree.index(), std::ios::in | std::ios::out | std::ios::binary).seekp(damaged_from)
        << std::string(static_cast<std::size_t>(size - damaged_from), 'x');
    for (const char* command : {"health", "check"}) {
      const ToolRun run = tree.run({command});
      EXPECT_EQ(run.status, 1);
      EXPECT_THAT(run.err, HasSubstr("is damaged: run `veldra-index rebuild`")) << command;
    }
    EXPECT_THAT(tree.run({"rebuild"}).err, HasSubstr("index.db.damaged"));
    EXPECT_EQ(tree.rows(CONTENT), whole);
    EXPECT_TRUE(std::filesystem::remove(tree.index().string() + ".damaged"));
    EXPECT_TRUE(tree.holds_nothing_beside_the_index());
  }
  Connection(tree.index()).execute("UPDATE schema_info SET value = '99' WHERE key = 'version'");
  for (const char* command : {"rebuild", "update"})
    EXPECT_THAT(tree.run({command}).err, HasSubstr("a newer release")) << command;
  EXPECT_EQ(tree.rows(CONTENT), whole);
}

using KillTest = ProjectTest;

TEST_F(KillTest, ARebuildLeavesTheOldIndexOrNoneOrTheNewOneWhole) {
  const long seed = asked_for("VELDRA_SEED", static_cast<long>(std::random_device()()));
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  std::mt19937 random(static_cast<unsigned>(seed));
  std::uniform_real_distribution<> part(0, 1);
  std::chrono::duration<double> whole_run{};
  const auto rebuild = [&] {
    const auto started = std::chrono::steady_clock::now();
    const ToolRun done = tree.run({"rebuild"});
    whole_run = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_TRUE(tree.holds_nothing_beside_the_index());
    return tree.rows(CONTENT);
  };
  std::vector<std::string> before = rebuild();
  const long kills = asked_for("VELDRA_KILLS", 6);
  int ended = 0;
  for (long kill = 1; kill <= kills && !testing::Test::HasFailure(); ++kill) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += "int name_" + std::to_string(kill * i) + ";\n";
    for (const char* name : {"src/util/swap.h", "b.c", "c.c"}) tree.write(name, text);
    const bool had_index = kill % 2 == 0;
    if (!had_index) std::filesystem::remove(tree.index());
    const auto delay = whole_run * part(random);
    SCOPED_TRACE("kill " + std::to_string(kill) + ", after " + std::to_string(delay.count()) +
                 " s");
    {
      const auto killed_when_it_goes = tree.start({"rebuild"});
      std::this_thread::sleep_for(delay);
    }
    const bool has_index = std::filesystem::exists(tree.index());
    EXPECT_TRUE(has_index || !had_index);
    EXPECT_TRUE(!has_index || tree.run({"check"}).status == 0);
    const std::vector<std::string> left =
        has_index ? tree.rows(CONTENT) : std::vector<std::string>();
    const std::vector<std::string> after = rebuild();
    EXPECT_NE(after, before);
    EXPECT_TRUE(left == after || (had_index ? left == before : !has_index))
        << testing::PrintToString(left);
    ended += left == after ? 1 : 0;
    before = after;
  }
  measured("kill", "veldra-index rebuild", kills, std::to_string(ended));
}

TEST_F(ProjectTest, AnUpdateEndsWithWhatARebuildWouldMake) {
  static constexpr const char* IDS = "SELECT id FROM files WHERE path LIKE 'src/%swap.h'";
  struct Step {
    std::string_view what;
    std::function<void()> change;
    int parsed, removed;
  };
  const Step steps[] = {
      {"touched only, and a rebuild that was killed has left its file",
       [&] {
         tree.write("notes.txt", read_text(tree.path("notes.txt")));
         tree.write("memory/codebase-index/index.db.staging", "left");
       },
       0, 0},
      {"changed", [&] { tree.write("src/util/swap.h", "struct Other {};\n#include \"late.h\"\n"); },
       1, 0},
      {"an import that was external becomes a file", [&] { tree.write("lib/late.h", "int x;\n"); },
       2, 0},
      {"nearer files of imported names that are no text",
       [&] {
         for (const char* name : {"src/vector", "src/util/late.h"})
           tree.write(name, std::string(3, '\0'));
       },
       0, 0},
      {"one becomes text", [&] { tree.write("src/util/late.h", "int y;\n"); }, 2, 0},
      {"and is none again", [&] { tree.write("src/util/late.h", std::string(3, '\0')); }, 1, 1},
      {"so much that a rebuild is faster, which parses all",
       [&] {
         tree.write("src/main.cc", read_text(tree.path("src/main.cc")) + std::string(999, ' '));
       },
       6, 0},
      {"a name for a file that is not there yet, which may change what anybody imports",
       [&] {
         tree.write("tsconfig.json", R"({"compilerOptions": {"paths": {"own": ["web/a.ts"]}}})");
         tree.write("web/main.ts", "import { a } from 'own';\n");
       },
       8, 0},
      {"the file", [&] { tree.write("web/a.ts", "export const a = 1;\n"); }, 2, 0},
      {"removed, and imported by another",
       [&] { std::filesystem::remove(tree.path("pkg/mod.py")); }, 1, 1},
      {"text becomes binary", [&] { tree.write("notes.txt", std::string(3, '\0')); }, 0, 1},
      {"an unusable name", [&] { tree.write("odd\xFF.c", "int x;\n"); }, 0, 0},
      {"all gone",
       [&] {
         for (const char* name : {"src", "lib", "tool", "web", "tsconfig.json"})
           std::filesystem::remove_all(tree.path(name));
       },
       0, 7},
  };
  for (const auto& [what, change, parsed, removed] : steps) {
    SCOPED_TRACE(what);
    change();
    const std::vector<std::string> ids = tree.rows(IDS);
    const auto done = tree.json({"update"});
    EXPECT_TRUE(tree.holds_nothing_beside_the_index());
    EXPECT_EQ(done["parsed"], parsed);
    EXPECT_EQ(done["removed"], removed);
    EXPECT_EQ(done["files"], tree.json({"stats"})["files"]);
    const std::vector<std::string> updated = tree.rows(CONTENT);
    EXPECT_TRUE(what != "changed" || tree.rows(IDS) == ids) << "nothing tells caches of a new id";
    ASSERT_EQ(tree.run({"rebuild"}).status, 0);
    EXPECT_EQ(updated, tree.rows(CONTENT));
  }
}

TEST_F(ProjectTest, ASearchFindsWhatPeopleType) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"FOO->BA"}, "notes.txt:1 "},
      {{"foo.bar"}, ""},
      {{"--", "->"}, "notes.txt:1 "},
      {{"\"bar foo\""}, ""},
      {{"swap", "-n", "2"}, "src/main.cc:1 src/main.cc:3 "},
      {{"swapi*"}, "src/util/swap.h:2 "},
      {{"from", "--path", "src/*.cc"}, "src/main.cc:3 "},
      {{"--fts", "NEAR(foo host)"}, "notes.txt:1 "},
  };
  for (const auto& [arguments, lines] : cases) {
    std::vector<std::string> command = {"--json", "search"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::string found;
    const ToolRun done = tree.run(command);
    EXPECT_EQ(done.status, lines.empty() ? 1 : 0) << done.err;
    for (const auto& hit : nlohmann::json::parse(done.out))
      found += hit["file"].get<std::string>() + ":" + hit["line"].dump() + " ";
    EXPECT_EQ(found, lines) << testing::PrintToString(arguments);
  }
  EXPECT_EQ(tree.run({"search", "swap_index_from", "--path", "src/main.cc", "--color", "always",
                      "-C", "1"})
                .out,
            "\033[35msrc/main.cc\033[0m-\033[32m2\033[0m-#include <vector>\n"
            "\033[35msrc/main.cc\033[0m:\033[32m3\033[0m:int main() { return "
            "util::\033[1;31mswap_index_from\033[0m(1); }\n");
  tree.write("gaps.txt", "1\nmark\n3\nmark\n5\n6\n7\nmark\n");
  EXPECT_EQ(tree.run({"search", "mark", "-C", "1", "--update"}).out,
            "gaps.txt-1-1\ngaps.txt:2:mark\ngaps.txt-3-3\ngaps.txt:4:mark\ngaps.txt-5-5\n--\n"
            "gaps.txt-7-7\ngaps.txt:8:mark\n");
}

TEST_F(ProjectTest, AQuestionIsAskedWhereItsUserStands) {
  EXPECT_EQ(tree.run({"search", "swap_index_from", "src/util"}).out,
            "src/util/swap.h:3:inline int swap_index_from(int) { return 0; }\n");
  EXPECT_EQ(tree.run({"search", "int", "src/main.cc", "--vimgrep"}).out,
            "src/main.cc:3:1:int main() { return util::swap_index_from(1); }\n");
  EXPECT_EQ(tree.run({"search", "-l", "int", "src"}).out, "src/main.cc\nsrc/util/swap.h\n");
  EXPECT_EQ(tree.run({"search", "-c", "int", "--path", "src/util"}).out, "src/util/swap.h:2\n");
  EXPECT_EQ(tree.run({"symbols", "go", "tool"}).out, "tool/run.py:3: member Runner.go\n");
  EXPECT_EQ(tree.run({"symbols", "Runner.go"}).out, "tool/run.py:3: member Runner.go\n");
  EXPECT_EQ(tree.run({"symbols", "Walker.go"}).status, 1);
  EXPECT_EQ(tree.run({"refs", "vector", "tool"}).status, 1);
  EXPECT_EQ(tree.run({"refs", "vector", "src"}).out, "src/main.cc:2: imports vector\n");
  EXPECT_THAT(tree.run({"search", "-n", "1", "int"}).err, HasSubstr(" 1 of 3 lines; -n for more"));
  tree.write("src/util/long.c", "int " + std::string(40'000, 'x') + " needle;\n");
  EXPECT_EQ(tree.json({"search", "needle", "--update"})[0]["column"], 40'006);
  EXPECT_LT(tree.run({"search", "needle"}).out.size(), 600U);
}

TEST_F(ProjectTest, AnAnswerLeavesOutLinesThatAreNoLongerThere) {
  tree.write("src/main.cc", "\nint main() { return util::swap_index_from(1); }\n");
  std::filesystem::remove(tree.path("src/util/swap.h"));
  tree.write("notes.txt", "Say foo->bar to user@host in C++\nadded\n");
  EXPECT_EQ(tree.run({"search", "swap_index_from"}).status, 1);
  EXPECT_EQ(tree.run({"search", "-l", "swap_index_from"}).out, "src/main.cc\n");
  EXPECT_EQ(tree.run({"symbols", "swap_index_from"}).status, 1);
  const ToolRun refs = tree.run({"refs", "vector"});
  EXPECT_EQ(refs.out, "");
  EXPECT_THAT(refs.err, HasSubstr("1 file has changed since: ask with --update"));
  EXPECT_EQ(tree.run({"search", "swap_index_from", "--update"}).out,
            "src/main.cc:2:int main() { return util::swap_index_from(1); }\n");
  const std::string elsewhere = tree.path("copy.db");
  std::filesystem::create_directory(tree.path("empty"));
  ASSERT_EQ(tree.run({"export", elsewhere}).status, 0);
  EXPECT_EQ(tree.run({"search", "Say foo", "empty", "--db", elsewhere}).out,
            "notes.txt:1:Say foo->bar to user@host in C++\n")
      << "where the tree is not at hand nothing is known to have changed";
}

TEST_F(ProjectTest, AnswersTellWhoImportsAndHowTheIndexIs) {
  EXPECT_EQ(tree.run({"refs", "swap.h"}).out, "src/main.cc:1: imports src/util/swap.h\n");
  EXPECT_EQ(tree.run({"refs", "pkg.mod"}).out, "tool/run.py:1: imports pkg/mod.py\n");
  EXPECT_EQ(tree.run({"refs", "vector"}).out, "src/main.cc:2: imports vector\n");
  EXPECT_EQ(tree.run({"refs", "ap.h"}).status, 1);
  EXPECT_EQ(tree.json({"refs", "vector"})[0]["external"], true);
  EXPECT_EQ(tree.json({"refs", "swap.h"})[0]["external"], false);
  EXPECT_EQ(tree.run({"refs", "util::swap_index_from"}).out,
            "src/main.cc:3: uses: int main() { return util::swap_index_from(1); }\n"
            "src/util/swap.h:3: defines: inline int swap_index_from(int) { return 0; }\n");
  const auto health = tree.json({"health"});
  EXPECT_EQ(health["index_generation"], 1);
  EXPECT_EQ(health["auto_vacuum"], "incremental");
  EXPECT_EQ(
      tree.run({"sql", "SELECT name AS n, 1.5 AS r, NULL AS o FROM components ORDER BY 1"}).out,
      "n     r    o\npkg   1.5\nsrc   1.5\ntool  1.5\n");
  const std::vector<std::string> whole = tree.rows(CONTENT);
  EXPECT_GT(tree.json({"export", "copy.db"})["bytes"], 1024);
  EXPECT_EQ(tree.json({"clear", "--yes"})["files_removed"], 5);
  EXPECT_EQ(tree.json({"import", "copy.db"})["files"], 5);
  EXPECT_EQ(tree.rows(CONTENT), whole);
  EXPECT_EQ(tree.json({"update"})["parsed"], 0) << "the stamp did not come along";
  EXPECT_EQ(tree.json({"clear", "--yes"})["files_removed"], 5);
  EXPECT_EQ(tree.json({"stats"})["files"], 0);
}

TEST_F(ProjectTest, BadInputIsAnsweredWithOneLineAndAStatus) {
  const std::vector<std::string> before = tree.rows(CONTENT);
  tree.write("words.txt", "no database at all, but long enough to be looked at as one\n");
  Connection(tree.path("other.db")).execute("CREATE TABLE theirs (x)");
  const std::tuple<std::vector<std::string>, int, std::string_view> cases[] = {
      {{}, 2, "--help"},
      {{"frobnicate"}, 2, "there is no command `frobnicate`"},
      {{"search", "->"}, 2, "put -- before"},
      {{"clear"}, 2, "--yes"},
      {{"search", "x", "-n", "0"}, 2, "Value 0 not in range 1 to 1000000; see"},
      {{"errors", "none.c"}, 1, "name a repository, or a folder or file in one"},
      {{"sql", "DELETE FROM files"}, 2, "only questions"},
      {{"sql", "PRAGMA journal_mode = DELETE"}, 2, "only questions"},
      {{"sql", "WITH x AS (SELECT 1) DELETE FROM files"}, 1, "readonly"},
      {{"sql", "SELECT 1; DELETE FROM files"}, 1, ""},
      {{"search", "--fts", "a AND"}, 1, "leave --fts out"},
      {{"symbols", "go", "--kind", "no"}, 1, "no symbol is of the kind no; there are class, "},
      {{"symbols", "go", "--kind", "class"}, 1, "no symbol of the kind class is named go"},
      {{"rebuild", "notes.txt"}, 1, "not a directory"},
      {{"import", "none.db"}, 1, "no such file"},
      {{"import", "words.txt"}, 1, "is no index: file is not a database; name a file"},
      {{"import", "other.db"}, 1, "is no index: no such table: schema_info"},
      {{"stats", "--db", "none.db"}, 1, "no index here: run `veldra-index rebuild "},
      {{"rebuild", "--db", "words.txt"}, 1, "file is not a database"},
      {{"rebuild", "--db", "/proc/none/i.db"}, 1, "name another place with --db"},
      {{"rebuild", "--db", "other.db"}, 1, "another program's database"},
  };
  for (const auto& [arguments, status, says] : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const ToolRun done = tree.run(arguments);
    EXPECT_EQ(done.status, status);
    EXPECT_THAT(done.err, HasSubstr(says));
    EXPECT_THAT(done.err, StartsWith("veldra-index: "));
    EXPECT_EQ(std::count(done.err.begin(), done.err.end(), '\n'), 1) << done.err;
    EXPECT_EQ(done.out, "");
  }
  EXPECT_EQ(tree.rows(CONTENT), before);
  EXPECT_THAT(read_text(tree.path("words.txt")), StartsWith("no database"));
  EXPECT_EQ(read_text(tree.path("other.db")).find("code_chunks"), std::string::npos);
}

}  // namespace
}  // namespace veldra::tool
