// A file is rewritten to larger pages or left as it was, and what could not be done is said once.
#include "veldra/storage/storage_size.h"

#include <gmock/gmock.h>

#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/statement_log.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class RewritePagesTest : public testing::Test {
 protected:
  RewritePagesTest() {
    make_old_file(path, 500);
    connection.emplace(path);
    for (const char* set : {"auto_vacuum=INCREMENTAL", "synchronous=NORMAL", "user_version=7"})
      connection->execute(std::string("PRAGMA ") + set).fetchall();
    rows = dump(*connection, OLD_ROWS);
  }

  /// The pages, the modes, the two settings that a rewrite changes meanwhile; every row is there.
  void expect_state(std::string_view expected) {
    std::string state;
    for (const char* pragma : {"page_size", "journal_mode", "auto_vacuum", "busy_timeout",
                               "synchronous", "user_version", "integrity_check"})
      state += dump(*connection, std::string("PRAGMA ") + pragma) + " ";
    EXPECT_EQ(state, expected);
    EXPECT_EQ(dump(*connection, OLD_ROWS), rows) << "the rewrite changed a row";
  }

  static constexpr std::string_view OLD_STATE = "1024 wal 0 5000 1 7 ok ";
  static constexpr std::string_view NEW_STATE = "8192 wal 0 5000 1 7 ok ";

  const TempDirectory directory;
  const std::filesystem::path path = directory / "index.db";
  const std::string line =
      "WARNING storage/storage_size: Rewriting " + path.string() + " with pages of 8192 bytes: ";
  std::optional<Connection> connection;
  std::string rows;
  const LogCapture log;
};

TEST_F(RewritePagesTest, ALogThatOthersLeftIsEmptiedFirstAndEveryRowIsInTheNewPages) {
  connection->execute("UPDATE files SET hash = 'in the log'");
  std::uintmax_t log_bytes = 1;
  {
    const StatementWatch watch(*connection, [&](std::string_view sql) {
      if (sql.starts_with("PRAGMA journal_mode=DELETE"))
        log_bytes = std::filesystem::file_size(path.string() + "-wal");
    });
    rewrite_pages(*connection, path, {});
  }
  EXPECT_EQ(log_bytes, 0U) << "a log that outlives the mode would be replayed over the new pages";
  EXPECT_EQ(dump(*connection, "SELECT DISTINCT hash FROM files"), "in the log");
  expect_state(NEW_STATE);
  EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(RewritePagesTest, AReasonAgainstItOrAnotherConnectionLeavesTheFileAlone) {
  rewrite_pages(*connection, path, "not enough disk space");
  EXPECT_THAT(log.lines(), ElementsAre(line + "not done, not enough disk space"));
  for (const char* begin : {"SELECT 'only open'", "BEGIN", "BEGIN IMMEDIATE"}) {
    SCOPED_TRACE(begin);
    Connection other(path);
    other.execute(begin).fetchall();
    dump(other, "SELECT * FROM files");
    rewrite_pages(*connection, path, {});
    expect_state(OLD_STATE);
    EXPECT_EQ(log.lines().back(), line + "not done, another connection has the file open");
  }
  EXPECT_EQ(log.lines().size(), 4U);
}

TEST_F(RewritePagesTest, AJournalThatCannotGoBackToWalIsReported) {
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
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith(line + "done, but the journal stays in")));
  expect_state("8192 delete 0 5000 1 7 ok ");
  reader.reset();
  rewrite_pages(*connection, path, {});
  expect_state(NEW_STATE);
}

}  // namespace
}  // namespace veldra
