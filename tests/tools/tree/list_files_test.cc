// Which files belong to an index, and which are the index itself.
#include "veldra-index/tree/list_files.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "tools/program/tool_runner.h"

namespace veldra::tool {
namespace {

std::vector<std::string> listed(const IndexPlace& place) {
  std::vector<std::string> paths;
  for (const SourcePath& file : walk_tree(place).files) paths.push_back(file.path);
  return paths;
}

TEST(ListFilesTest, LeavesTheIndexAloneUnderAnyName) {
  const ToolTree tree;
  for (const char* name : {"a.c", "sub/.hidden", "memory/codebase-index/index.db", "memory/notes"})
    tree.write(name, "");
  std::filesystem::create_hard_link(tree.index(), tree.path("linked.db"));
  EXPECT_THAT(listed(find_index(tree.path(""), std::nullopt)),
              testing::ElementsAre("a.c", "memory/notes"));

  const IndexPlace place{"/r", "/r/sub/i.db"};
  for (const char* own : {"memory/codebase-index/x", "sub/i.db", "sub/i.db-wal", "sub/i.db-shm",
                          "sub/i.db-journal", "sub/i.db.staging", "sub/i.db.lock"})
    EXPECT_TRUE(place.owns(own)) << own;
  for (const char* other : {"memory/codebase-index2/x", "sub/i.db2", "i.db", "sub/i.d"})
    EXPECT_FALSE(place.owns(other)) << other;
}

TEST(ListFilesTest, AskTheGitOfTheTreeWhateverAHookSays) {
  const ToolTree tree;
  tree.write("here/.gitignore", "made.c\n");
  tree.write("here/made.c", "");
  const std::string here = tree.path("here").string();
  for (const auto& command :
       std::vector<std::vector<std::string>>{{"git", "init", "-q", here},
                                             {"git", "-C", here, "add", "-f", "made.c"},
                                             {"git", "init", "-q", tree.path("other").string()}})
    ASSERT_EQ(run_program(command).status, 0);
  ::setenv("GIT_DIR", tree.path("other/.git").c_str(), 1);
  const auto paths = listed(find_index(here, std::nullopt));
  ::unsetenv("GIT_DIR");
  EXPECT_THAT(paths, testing::ElementsAre(".gitignore", "made.c"));
}

}  // namespace
}  // namespace veldra::tool
