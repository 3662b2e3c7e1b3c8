// A file is rewritten to larger pages or left as it was, and what could not be done is said once.
#include "veldra/storage/storage_size.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/statement_watch.h"
#include "support/temp_database.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class RewritePagesTest : public testing::Test {
 protected:
  RewritePagesTest() : path(directory / "index.db") {
    make_old_file(path, 500);
    connection.emplace(path);
    connection->execute("PRAGMA auto_vacuum=INCREMENTAL").fetchall();
    connection->execute("PRAGMA synchronous=NORMAL").fetchall();
    connection->execute("PRAGMA user_version=7").fetchall();
    rows = dump(*connection, OLD_ROWS);
  }

  /// Page size, journal mode, auto-vacuum mode, and the two settings that a rewrite changes
  /// meanwhile.
  std::string state() {
    std::string text;
    for (const char* pragma : {"page_size", "journal_mode", "auto_vacuum", "busy_timeout",
                               "synchronous", "user_version", "integrity_check"})
      text += dump(*connection, std::string("PRAGMA ") + pragma) + " ";
    return text;
  }

  static constexpr std::string_view OLD_STATE = "1024 wal 0 5000 1 7 ok ";

  const TempDirectory directory;
  const std::filesystem::path path;
  std::optional<Connection> connection;
  std::string rows;
  const LogCapture log;
};

TEST_F(RewritePagesTest, EveryRowIsInTheNewPagesAndEverySettingIsAsBefore) {
  rewrite_pages(*connection, path, {});
  EXPECT_EQ(state(), "8192 wal 0 5000 1 7 ok ");
  EXPECT_EQ(dump(*connection, OLD_ROWS), rows);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RewritePagesTest, AReasonAgainstItLeavesTheFileAlone) {
  rewrite_pages(*connection, path, "not enough disk space: 1 MiB free in /x, 65 MiB needed");
  EXPECT_EQ(state(), OLD_STATE);
  EXPECT_THAT(log.lines(),
              ElementsAre("WARNING storage/storage_size: Rewriting " + path.string() +
                          " with pages of 8192 bytes: not done, not enough disk space: 1 MiB free"
                          " in /x, 65 MiB needed"));
}

TEST_F(RewritePagesTest, AFileThatIsOpenElsewhereIsLeftAlone) {
  Connection other(path);
  for (const char* doing : {"PRAGMA page_count", "BEGIN; SELECT", "BEGIN IMMEDIATE"}) {
    SCOPED_TRACE(doing);
    const bool reading = std::string_view(doing) == "BEGIN; SELECT";
    other.execute(reading ? "BEGIN" : doing).fetchall();
    dump(other, "SELECT * FROM files");
    rewrite_pages(*connection, path, {});
    EXPECT_EQ(state(), OLD_STATE);
    if (sqlite3_get_autocommit(other.handle()) == 0) other.execute("ROLLBACK");
  }
  const auto warning = EndsWith("not done, another connection has the file open");
  EXPECT_THAT(log.lines(), ElementsAre(warning, warning, warning));
}

TEST_F(RewritePagesTest, ALogThatOtherConnectionsLeftIsEmptiedFirst) {
  connection->execute("UPDATE files SET hash = 'in the log'");
  bool emptied = false;
  {
    const StatementWatch watch(*connection, [&](std::string_view sql) {
      if (sql.starts_with("PRAGMA journal_mode=DELETE"))
        emptied = std::filesystem::file_size(path.string() + "-wal") == 0;
    });
    rewrite_pages(*connection, path, {});
  }
  EXPECT_TRUE(emptied) << "a log that outlives the mode would be replayed over the new pages";
  EXPECT_EQ(dump(*connection, "SELECT DISTINCT hash FROM files"), "in the log");
}

TEST_F(RewritePagesTest, AStatementThatFailsIsThrownAndTheFileIsAsBefore) {
  sqlite3* handle = connection->handle();
  for (const char* failing : {"PRAGMA wal_checkpoint", "VACUUM"}) {
    SCOPED_TRACE(failing);
    {
      const StatementWatch watch(*connection, [&](std::string_view sql) {
        if (sql.starts_with(failing)) sqlite3_interrupt(handle);
      });
      EXPECT_THROW(rewrite_pages(*connection, path, {}), OperationalError);
    }
    EXPECT_EQ(state(), OLD_STATE);
    EXPECT_EQ(dump(*connection, OLD_ROWS), rows);
  }
  const auto record = [](const std::string& statement) {
    return AllOf(HasSubstr("not done, a statement failed\nOperationalError: interrupted\n"),
                 EndsWith(statement));
  };
  EXPECT_THAT(log.lines(),
              ElementsAre(record("PRAGMA wal_checkpoint(TRUNCATE)"), record("VACUUM")));
}

TEST_F(RewritePagesTest, AJournalThatCannotGoBackToWalIsReported) {
  Connection other(path);
  other.close();
  std::optional<Connection> reader;
  {
    const StatementWatch watch(*connection, [&](std::string_view sql) {
      if (!sql.starts_with("PRAGMA journal_mode=WAL")) return;
      reader.emplace(path);
      reader->execute("BEGIN");
      dump(*reader, "SELECT count(*) FROM files");
    });
    rewrite_pages(*connection, path, {});
  }
  EXPECT_THAT(log.lines(),
              ElementsAre(AllOf(StartsWith("WARNING storage/storage_size: Rewriting "),
                                HasSubstr("done, but the journal stays in rollback mode"))));
  EXPECT_EQ(state(), "8192 delete 0 5000 1 7 ok ");
  reader.reset();
  rewrite_pages(*connection, path, {});
  EXPECT_EQ(state(), "8192 wal 0 5000 1 7 ok ");
  EXPECT_EQ(dump(*connection, OLD_ROWS), rows);
}

// The process that dies in the next test, at the statement that its argument counts to.
TEST(RewritePagesChild, DISABLED_DiesAtAStatement) {
  const std::string argument = child_argument();
  int left = std::stoi(argument);
  Database db(argument.substr(argument.find(' ') + 1));
  db.connect();
  const StatementWatch watch(*db.connection(), [&](std::string_view) {
    if (left-- == 0) ::raise(SIGKILL);
  });
  db.create_schema();
  db.migrate_schema();
}

TEST(RewritePagesDeathTest, DyingAtAnyStatementOfAMigrationLosesNoRow) {
  const TempDirectory directory;
  const std::filesystem::path path = directory / "index.db";
  int killed = 0;
  for (int statement = 0;; statement += 4) {
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
      std::filesystem::remove(path.string() + suffix);
    make_old_file(path, 50);
    const std::string rows = as_another_process(path, OLD_ROWS);
    ChildProcess child(this_program_running("RewritePagesChild.DISABLED_DiesAtAStatement"),
                       with_child_argument(std::to_string(statement) + " " + path.string()));
    const int status = child.wait();
    SCOPED_TRACE("died at statement " + std::to_string(statement));
    EXPECT_EQ(as_another_process(path, OLD_ROWS), rows);
    Database db(path);
    open(db);
    EXPECT_EQ(dump(db, OLD_ROWS), rows);
    EXPECT_EQ(dump(db, "SELECT value FROM schema_info WHERE key = 'version'"), "3");
    EXPECT_EQ(dump(db, "PRAGMA page_size") + dump(db, "PRAGMA journal_mode"), "8192wal");
    EXPECT_TRUE(db.check_integrity());
    db.close();
    if (status == 0) break;
    ASSERT_EQ(status, 128 + SIGKILL);
    ++killed;
  }
  EXPECT_GT(killed, 10) << "the process was never at work when it should have died";
}

}  // namespace
}  // namespace veldra
