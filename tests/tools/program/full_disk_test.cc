// A rebuild on a volume that fills up: a clear error, the old index, and success once there is
// room.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <algorithm>
#include <fstream>

#include "faults/measured.h"
#include "tools/program/tool_runner.h"

namespace veldra::tool {
namespace {

constexpr const char* CONTENT =
    "SELECT path, name FROM files JOIN symbols ON file_id = files.id UNION ALL"
    " SELECT rowid, text FROM code_chunks ORDER BY 1, 2";

TEST(FullDiskTest, ARebuildKeepsTheOldIndexWhereverTheRoomEnds) {
  const ToolTree tree;
  const std::filesystem::path volume = tree.path(".volume");
  std::filesystem::create_directory(volume);
  if (::mount("tmpfs", volume.c_str(), "tmpfs", 0, "size=16m") != 0)
    GTEST_SKIP() << "mounting a volume needs root";
  struct Unmount {
    const std::filesystem::path& path;
    ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
  } const unmount{volume};
  const auto run = [&](std::vector<std::string> command) {
    command.insert(command.end(), {"--db", ".volume/index.db"});
    return tree.run(command);
  };
  const auto content = [&] {
    return tree.json({"sql", CONTENT, "--db", ".volume/index.db"})["rows"];
  };

  std::string text;
  for (int i = 0; i < 4000; ++i) text += "int name_" + std::to_string(i) + ";\n";
  tree.write("old.c", text);
  ASSERT_EQ(run({"rebuild"}).status, 0);
  const nlohmann::json before = content();
  tree.write("new.c", text);

  int refused = 0;
  for (std::uintmax_t left = 0;; left = 2 * left + 4096) {
    SCOPED_TRACE("room for " + std::to_string(left) + " bytes");
    const std::uintmax_t room = std::filesystem::space(volume).available;
    std::ofstream(volume / "filler") << std::string(room - std::min(room, left), 'x');
    const ToolRun rebuild = run({"rebuild"});
    std::filesystem::remove(volume / "filler");
    if (rebuild.status == 0) break;
    ++refused;
    EXPECT_EQ(rebuild.status, 1);
    EXPECT_THAT(rebuild.err, testing::ContainsRegex("free some space|look at the disk"));
    EXPECT_EQ(content(), before);
    EXPECT_EQ(run({"check"}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(volume / "index.db.staging"));
  }
  measured("full disk", "the tool's rebuild", refused + 1, std::to_string(refused));
  EXPECT_GT(refused, 4) << "the volume was never full";
  EXPECT_EQ(content().size(), 2 * before.size());
}

}  // namespace
}  // namespace veldra::tool
