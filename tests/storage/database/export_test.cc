// A copy of the file at one commit: whole under its name or not at all, beside whatever goes on.
#include <fstream>

#include "support/database_test.h"
#include "veldra/platform/new_file.h"

namespace veldra {
namespace {

class ExportTest : public testing::Test {
 protected:
  ExportTest() {
    db->execute("PRAGMA application_id=77");
    db->execute("INSERT INTO components (name, path) VALUES ('committed', '')");
    Access::bump_index_generation(*db);
  }

  /// What is in the directory beside the index and its log.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(db.directory.path())) {
      const std::string name = entry.path().filename();
      if (!name.starts_with("index.db")) names.push_back(name);
    }
    return names;
  }

  LogCapture log;
  TempDatabase db;
  const std::filesystem::path copy = db.directory / "copy.db";
};

TEST_F(ExportTest, TakesTheLastCommitWhileOthersWriteAndIsAStagingFileElsewhere) {
  static constexpr std::string_view STATE =
      "SELECT page_size, auto_vacuum, user_version, application_id, name FROM pragma_page_size,"
      " pragma_auto_vacuum, pragma_user_version, pragma_application_id, components";
  std::int64_t bytes = 0;
  db->transaction([&](Cursor& cursor) {
    cursor.execute("UPDATE components SET name = 'not yet'");
    bytes = db->export_to(copy);  // within the transaction
    EXPECT_TRUE(finished(std::async(std::launch::async, [&] { db->export_to(copy); })))
        << "waited for the writer";
  });
  EXPECT_EQ(static_cast<std::uintmax_t>(bytes), std::filesystem::file_size(copy));
  EXPECT_THAT(files(), ElementsAre("copy.db"));
  {
    Connection exported(copy, Connection::Mode::ReadOnly);
    EXPECT_EQ(dump(exported, STATE), "8192|2|1|77|committed");
    EXPECT_EQ(dump(exported, "PRAGMA journal_mode"), "delete");
    EXPECT_EQ(dump(exported, "PRAGMA integrity_check"), "ok");
  }
  EXPECT_THAT(files(), ElementsAre("copy.db")) << "a reader of the copy needed a log";
  TempDatabase elsewhere;
  EXPECT_EQ(elsewhere->swap_index_from(copy).at("components"), 1);
  EXPECT_EQ(dump(*elsewhere, "SELECT name FROM components"), "committed");
}

TEST_F(ExportTest, ReplacesWhatHasTheNameAndLeavesNothingElseBehind) {
  const std::filesystem::path target = db.directory / "target";
  std::ofstream(target) << "of somebody";
  std::filesystem::create_symlink(target, copy);
  std::ofstream(copy.string() + ".new-1-1") << "left by a process that was killed";
  const NewFile another(copy);  // of somebody who is exporting to the same name
  db->export_to(copy);
  EXPECT_FALSE(std::filesystem::is_symlink(copy)) << "the link was followed";
  EXPECT_EQ(std::filesystem::file_size(target), 11U);
  EXPECT_THAT(files(), testing::UnorderedElementsAre("target", "copy.db",
                                                     another.path().filename().string()));

  EXPECT_THROW(db->export_to(db.directory / "missing/copy.db"), OSError);
  std::filesystem::create_directory(db.directory / "directory");
  EXPECT_THROW(db->export_to(db.directory / "directory"), OSError);
  EXPECT_EQ(files().size(), 4U) << "a failure left something behind";
}

TEST_F(ExportTest, NeverWritesOntoTheIndexItself) {
  std::filesystem::create_symlink(db->db_path, db.directory / "link.db");
  std::filesystem::create_directory_symlink(db.directory.path(), db.directory / "here");
  for (const char* const name :
       {"index.db", "index.db-wal", "index.db-shm", "index.db-journal", "link.db", "here/index.db"})
    EXPECT_THROW(db->export_to(db.directory / name), ProgrammingError) << name;
  Database memory(":memory:");
  EXPECT_THROW(memory.export_to(copy), RuntimeError);
  memory.connect();
  EXPECT_THROW(memory.export_to(copy), ProgrammingError);
  EXPECT_EQ(dump(*db, "SELECT name FROM components"), "committed");
}

}  // namespace
}  // namespace veldra
