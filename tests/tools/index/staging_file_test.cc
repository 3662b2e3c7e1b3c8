// A staging file that becomes the index, and what keeps it from that.
#include "veldra-index/index/staging_file.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_database.h"
#include "support/whole_index.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

const ExtractorVersions VERSIONS = {{"C", 1}};

bool publish(const fs::path& directory) {
  StagingFile staging(directory / "index.db.staging", VERSIONS);
  staging.fill([](Cursor& cursor) {
    cursor.execute("INSERT INTO files (path, language, hash) VALUES ('a.c', 'C', 'x')");
    cursor.execute("INSERT INTO code_chunks (rowid, text) VALUES (1048576, 'int main')");
  });
  return staging.publish(directory / "index.db");
}

TEST(StagingFileTest, BecomesAnIndexAsASwapIntoAnEmptyOneWouldMakeIt) {
  const TempDirectory directory;
  ASSERT_TRUE(publish(directory.path()));
  {
    Connection other(directory / "index.db", Connection::Mode::ReadOnly);
    std::string header;
    for (const char* name : {"journal_mode", "user_version", "page_size", "auto_vacuum"})
      header += dump(other, std::string("PRAGMA ") + name) + " ";
    EXPECT_EQ(header, "wal 1 8192 2 ");
  }
  EXPECT_EQ(look_at(directory / "index.db").damage, "");
  Database index(directory / "index.db");
  open(index);
  EXPECT_EQ(index.refresh_extractor_stamp(VERSIONS), 0) << "an update would parse every file again";
  index.execute("INSERT INTO code_chunks (rowid, text) VALUES (1048577, 'main')");
  EXPECT_EQ(dump(index, "SELECT rowid FROM code_chunks WHERE code_chunks MATCH 'main'"),
            "1048576\n1048577");
  index.close();
  const fs::directory_iterator files(directory.path());
  EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "something is left beside the index";
}

TEST(StagingFileTest, TakesNoNameFromAnotherAndNoJournalOfAnIndexThatIsGone) {
  for (const char* taken : {"index.db", "index.db-wal", "index.db-journal"}) {
    SCOPED_TRACE(taken);
    const TempDirectory directory;
    std::ofstream(directory / taken) << "another's";
    EXPECT_FALSE(publish(directory.path()));
    EXPECT_EQ(fs::file_size(directory / taken), 9U);
    const fs::directory_iterator files(directory.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  }
}

}  // namespace
}  // namespace veldra::tool
