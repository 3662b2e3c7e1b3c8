// Every open brings a file to this build's schema and pages, while queries go on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "support/database_test_access.h"
#include "support/fake_disk.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/temp_database.h"
#include "veldra/storage/reader_pool.h"

namespace veldra {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::string_view CURRENT = "INFO storage/database: Schema version 3 (recorded 3)";
constexpr std::string_view FILE_STATE =
    "SELECT page_size, auto_vacuum, (SELECT value FROM schema_info WHERE key = 'version')"
    " FROM pragma_page_size, pragma_auto_vacuum";

TEST(SchemaTest, AnOldFileIsMigratedAndRewrittenOnceWhileReadersGoOn) {
  const TempDirectory directory;
  make_old_file(directory / "index.db", 5000);
  const std::string rows = as_another_process(directory / "index.db", OLD_ROWS);
  LogCapture log;
  Database db(directory / "index.db");
  db.connect();
  {
    std::atomic<bool> done = false;
    std::atomic<int> queries = 0;
    std::vector<std::jthread> readers;
    for (int i = 0; i < 3; ++i)
      readers.emplace_back([&] {
        while (!done) {
          EXPECT_NO_THROW(
              EXPECT_EQ(dump(db, "SELECT count(*), sum(id) FROM files"), "5000|12502500"));
          EXPECT_NO_THROW(EXPECT_EQ(db.index_generation(), 0));
          ++queries;
        }
      });
    while (queries < 3) std::this_thread::yield();
    const auto before = DatabaseTestAccess::readers(db);
    db.create_schema();
    db.migrate_schema();
    EXPECT_NE(DatabaseTestAccess::readers(db), before) << "the readers of the old pages stayed";
    EXPECT_THROW(static_cast<void>(before->lease()), ReaderUnavailable);
    const int seen = queries;
    while (queries < seen + 3) std::this_thread::yield();
    done = true;
  }
  EXPECT_EQ(dump(db, FILE_STATE), "8192|0|3");
  EXPECT_EQ(dump(db, "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(dump(db, OLD_ROWS), rows);
  EXPECT_EQ(dump(db, "SELECT count(*) FROM files WHERE hash <> 'stale'"), "0");
  EXPECT_TRUE(db.check_integrity());
  EXPECT_THAT(log.take(), ElementsAre("INFO storage/database: Schema version 3 (recorded 1)"));
  db.close();

  db.connect();
  const auto pool = DatabaseTestAccess::readers(db);
  const std::string schema = dump(db, "PRAGMA schema_version") + dump(db, "PRAGMA data_version");
  db.create_schema();
  db.migrate_schema();
  EXPECT_EQ(DatabaseTestAccess::readers(db), pool) << "the pool was closed for nothing";
  EXPECT_EQ(dump(db, "PRAGMA schema_version") + dump(db, "PRAGMA data_version"), schema);
  EXPECT_EQ(dump(db, OLD_ROWS), rows);
  EXPECT_THAT(log.lines(), ElementsAre(CURRENT));
}

TEST(SchemaTest, TooLittleDiskLeavesTheFileAndTheNextOpenTriesAgain) {
  const TempDirectory directory;
  make_old_file(directory / "index.db", 100);
  Database db(directory / "index.db");
  LogCapture log;
  {
    const FakeDisk full({{directory.path(), {1, 5 * _MIB}}});
    db.connect();
    const auto before = DatabaseTestAccess::readers(db);
    db.create_schema();
    db.migrate_schema();
    EXPECT_EQ(dump(db, FILE_STATE), "1024|0|3");
    EXPECT_NE(DatabaseTestAccess::readers(db), before);
    EXPECT_NE(DatabaseTestAccess::readers(db), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre(EndsWith("(recorded 1)"),
                            AllOf(StartsWith("WARNING storage/storage_size: "),
                                  EndsWith("not done, not enough disk space: 5 MiB free in " +
                                           directory.path().string() + ", 64 MiB needed"))));
    db.close();
  }
  open(db);
  EXPECT_EQ(dump(db, FILE_STATE), "8192|0|3");
  EXPECT_THAT(log.lines(), ElementsAre(CURRENT));
}

/// An old file behind a connected database.
class OldFile {
 public:
  OldFile() : db(_directory / "index.db") {
    make_old_file(db.db_path, 10);
    db.connect();
    db.create_schema();
  }

 private:
  TempDirectory _directory;  // first: it outlives the database in it

 public:
  Database db;
  const LogCapture log;
};

TEST(SchemaTest, AnErrorOfTheDiskCheckLeavesPoolAndFileUntouched) {
  OldFile old;
  const auto before = DatabaseTestAccess::readers(old.db);
  const FakeDisk gone({});
  EXPECT_THROW(old.db.migrate_schema(), OSError);
  EXPECT_EQ(DatabaseTestAccess::readers(old.db), before);
  EXPECT_EQ(dump(old.db, FILE_STATE), "1024|0|3");
}

TEST(SchemaTest, AFailedRewriteOpensThePoolAgainBeforeItsErrorGoesOn) {
  OldFile old;
  // A statement half read keeps VACUUM and the checkpoint away.
  Cursor half_read = old.db.execute("SELECT * FROM files");
  ASSERT_TRUE(half_read.fetchone());
  EXPECT_THROW(old.db.migrate_schema(), OperationalError);
  ASSERT_NE(DatabaseTestAccess::readers(old.db), nullptr) << "queries were left to the writer";
  auto write = std::async(std::launch::async, [&] { old.db.execute("DELETE FROM edges"); });
  EXPECT_TRUE(finished(write)) << "the lock stayed held";
  half_read.close();
  old.db.migrate_schema();
  EXPECT_EQ(dump(old.db, FILE_STATE), "8192|0|3");
}

TEST(SchemaTest, AFileThatEndsAtAnotherVersionGetsNoLineAndNoRewrite) {
  {
    OldFile newer;
    newer.db.execute("UPDATE schema_info SET value = '4' WHERE key = 'version'");
    newer.db.migrate_schema();
    EXPECT_THAT(newer.log.lines(), IsEmpty());
    EXPECT_EQ(dump(newer.db, FILE_STATE), "1024|0|4");
    EXPECT_EQ(dump(newer.db, "SELECT count(*) FROM files"), "10");
  }
  OldFile stuck;
  stuck.db.execute(
      "CREATE TRIGGER no BEFORE INSERT ON schema_info BEGIN SELECT raise(ABORT, 'no'); END");
  EXPECT_THROW(stuck.db.migrate_schema(), SchemaMigrationError);
  EXPECT_THAT(stuck.log.lines(), ElementsAre(HasSubstr("Schema migration to version 2 failed")));
  EXPECT_EQ(dump(stuck.db, FILE_STATE), "1024|0|1");
}

TEST(SchemaTest, ADatabaseThatIsNotOpenOrNoDatabaseIsRefused) {
  TempDatabase db(TempDatabase::State::Unconnected);
  EXPECT_THROW(db->create_schema(), RuntimeError);
  try {
    db->migrate_schema();
    ADD_FAILURE() << "a database that was never connected was migrated";
  } catch (const RuntimeError& error) {
    EXPECT_STREQ(error.what(), "Database not connected. Call connect() first.");
  }
  Database memory(":memory:");
  open(memory);
  EXPECT_EQ(dump(memory, FILE_STATE), "8192|2|3");
}

}  // namespace
}  // namespace veldra
