// Another process commits and restarts the log in the middle of a checkpoint of ours: SQLite
// before 3.51.3 then loses what is committed next (https://www.sqlite.org/wal.html#walresetbug).
#include "faults/operations.h"
#include "support/fault_vfs.h"
#include "support/pages.h"
#include "support/statement_log.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

constexpr std::string_view SMALL = "INSERT INTO filler VALUES (zeroblob(1))";
// More than 1000 frames: whoever commits it checkpoints.
constexpr std::string_view LARGE = "INSERT INTO filler VALUES (zeroblob(9000000))";

class WalResetTest : public ::testing::Test {
 protected:
  WalResetTest() {
    make_pages(db.db_path, "INCREMENTAL", 20'000, 9'000);
    db.connect();
    other = std::make_unique<Connection>(db.db_path);
  }

  /// Commits below the log's former end, seen by everyone?
  void expect_later_commits_seen() {
    const std::string before = dump(db, "SELECT count(*) FROM filler");
    for (int i = 0; i < 3; ++i) other->execute(SMALL);
    EXPECT_EQ(dump(db, "SELECT count(*) FROM filler"), std::to_string(std::stol(before) + 3));
    other->close();
    db.close();
    EXPECT_EQ(look_at(db.db_path).damage, "");
  }

  TempDirectory directory;
  FaultVfs vfs;
  LogCapture log;
  Database db{directory.path() / "index.db"};
  std::unique_ptr<Connection> other;
};

TEST_F(WalResetTest, ByTheCommitOfALargeTransaction) {
  // ours                  other
  // commits
  //                       commits, copies the whole log
  // reads the header
  //                       commits
  // checkpoints
  bool in_window = false;
  vfs.before_checkpoint([&] {
    other->execute(LARGE);
    vfs.after_log_header([&] {
      other->execute(SMALL);
      in_window = true;
    });
  });
  db.execute(LARGE);
  EXPECT_TRUE(in_window);
  expect_later_commits_seen();
}

TEST_F(WalResetTest, ByACompactionThatGivesUpOnAWriter) {
  // ours                  other
  //                       commits, copies the whole log, begins to write
  // waits for the writer, reads the header
  //                       commits
  // checkpoints
  bool in_window = false;
  const std::shared_ptr<Connection> connection = db.connection();
  const StatementWatch watch(*connection, [&](std::string_view statement) {
    if (!statement.starts_with("PRAGMA wal_checkpoint(TRUNCATE)")) return;
    other->execute(LARGE);
    other->execute("BEGIN IMMEDIATE");
    other->execute(SMALL);
    vfs.after_log_header([&] {
      other->execute("COMMIT");
      in_window = true;
    });
  });
  EXPECT_EQ(db.compact().pages_released, 9'000);
  EXPECT_TRUE(in_window);
  expect_later_commits_seen();
}

}  // namespace
}  // namespace veldra
