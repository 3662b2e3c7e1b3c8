// Every open brings a file to this build's schema and pages, while queries go on.
#include "support/database_test.h"
#include "support/fake_disk.h"
#include "support/old_file.h"

namespace veldra {
namespace {

using testing::HasSubstr;

constexpr std::string_view MIGRATED = "INFO storage/database: Schema version 3 (recorded 1)";
constexpr std::string_view CURRENT = "INFO storage/database: Schema version 3 (recorded 3)";
class OldFileSchemaTest : public testing::Test {
 protected:
  OldFileSchemaTest() : db(directory / "index.db") {
    make_old_file(db.db_path, 2000);
    rows = as_another_process(db.db_path, OLD_ROWS);
    db.connect();
    db.create_schema();
    db.execute("PRAGMA user_version=7");
  }

  auto pool() { return Access::readers(db); }

  /// The pages, the modes, what a rewrite changes meanwhile, the version; every row is there.
  void expect_state(std::string_view expected) {
    static constexpr std::string_view STATE =
        "SELECT page_size, auto_vacuum, journal_mode, timeout, synchronous, user_version,"
        " (SELECT value FROM schema_info WHERE key = 'version')"
        " FROM pragma_page_size, pragma_auto_vacuum, pragma_journal_mode, pragma_busy_timeout,"
        " pragma_synchronous, pragma_user_version";
    EXPECT_EQ(dump(*db.connection(), STATE), expected);
    EXPECT_EQ(dump(db, OLD_ROWS), rows) << "a row was changed";
  }

  const TempDirectory directory;
  Database db;
  std::string rows;
  LogCapture log;
};

TEST_F(OldFileSchemaTest, IsMigratedAndRewrittenOnceWhileQueriesWait) {
  const auto before = pool();
  std::future<std::string> query;
  {
    const StatementWatch watch(*db.connection(), [&](std::string_view statement) {
      if (statement != "VACUUM") return;
      query = std::async(std::launch::async, [&] { return dump(db, OLD_ROWS); });
      EXPECT_FALSE(finished(query, 50ms)) << "answered in the middle of the rewrite";
    });
    db.migrate_schema();
  }
  ASSERT_TRUE(finished(query));
  EXPECT_EQ(query.get(), rows);
  EXPECT_THROW((void)before->lease(), ReaderUnavailable) << "of the old pages";
  expect_state("8192|0|wal|5000|1|7|3");
  const auto readers = pool();
  db.create_schema();
  db.migrate_schema();
  EXPECT_EQ(pool(), readers) << "the pool was closed for nothing";
  EXPECT_THAT(log.lines(), ElementsAre(MIGRATED, CURRENT));
}

TEST_F(OldFileSchemaTest, KeepsItsPagesUntilARewriteSucceeds) {
  auto before = pool();
  {
    const FakeDisk gone({});
    EXPECT_THROW(db.migrate_schema(), OSError);
    EXPECT_EQ(pool(), before) << "the pool was closed for nothing";
    const FakeDisk full({{directory.path(), {1, 5 * _MIB}}});
    db.migrate_schema();
    EXPECT_NE(pool(), before);
    before = pool();
  }
  {
    Cursor half_read = db.execute("SELECT * FROM files");
    ASSERT_TRUE(half_read.fetchone());
    EXPECT_THROW(db.migrate_schema(), OperationalError);
  }
  EXPECT_NE(pool(), before);
  ASSERT_NE(pool(), nullptr) << "queries were left to the writer";
  for (const char* const begin : {"SELECT 'only open'", "BEGIN", "BEGIN IMMEDIATE"}) {
    Connection other(db.db_path);
    other.execute(begin).fetchall();
    dump(other, "SELECT * FROM files");
    db.migrate_schema();
    expect_state("1024|0|wal|5000|1|7|3");
    EXPECT_THAT(log.lines().back(), HasSubstr("not done, another connection has the file open"));
  }
  EXPECT_EQ(log.lines()[2], "WARNING storage/storage_size: Rewriting " + db.db_path.string() +
                                " with pages of 8192 bytes: not done, not enough disk space: 5 MiB"
                                " free in " +
                                directory.path().string() + ", 65 MiB needed");
  EXPECT_THAT(log.lines()[4],
              HasSubstr("not done, a statement failed\nOperationalError: database table is locked\n"
                        "PRAGMA wal_checkpoint(TRUNCATE)"));
  db.migrate_schema();
  expect_state("8192|0|wal|5000|1|7|3");
}

TEST_F(OldFileSchemaTest, WhoseJournalCannotGoBackToWalIsUsedWithoutReadersUntilTheNextOpen) {
  std::optional<Connection> reader;
  {
    const StatementWatch watch(*db.connection(), [&](std::string_view statement) {
      if (!statement.starts_with("PRAGMA journal_mode=WAL")) return;
      reader.emplace(db.db_path);
      reader->execute("BEGIN");
      dump(*reader, "SELECT count(*) FROM files");
    });
    db.migrate_schema();
  }
  EXPECT_THAT(log.lines().back(), HasSubstr("bytes: done, but the journal stays in"));
  EXPECT_EQ(pool(), nullptr);
  expect_state("8192|0|delete|5000|1|7|3");
  reader.reset();
  db.close();
  db.connect();
  expect_state("8192|0|wal|5000|1|7|3");
}

}  // namespace
}  // namespace veldra
