// Every open brings a file to this build's schema and pages, while queries go on.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/database_test_access.h"
#include "support/fake_disk.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/temp_database.h"
#include "veldra/storage/reader_pool.h"

namespace veldra {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view CURRENT = "INFO storage/database: Schema version 3 (recorded 3)";
constexpr std::string_view FILE_STATE =
    "SELECT page_size, auto_vacuum, (SELECT value FROM schema_info WHERE key = 'version')"
    " FROM pragma_page_size, pragma_auto_vacuum";

class OldFileSchemaTest : public testing::Test {
 protected:
  OldFileSchemaTest() : db(directory / "index.db") {
    make_old_file(db.db_path, 2000);
    rows = as_another_process(db.db_path, OLD_ROWS);
    db.connect();
    db.create_schema();
  }

  auto pool() { return DatabaseTestAccess::readers(db); }

  const TempDirectory directory;
  Database db;
  std::string rows;
  LogCapture log;
};

TEST_F(OldFileSchemaTest, IsMigratedAndRewrittenOnceWhileReadersGoOn) {
  {
    std::atomic<bool> done = false;
    std::atomic<int> queries = 0;
    std::vector<std::jthread> readers;
    for (int i = 0; i < 3; ++i)
      readers.emplace_back([&] {
        while (!done) {
          EXPECT_NO_THROW(
              EXPECT_EQ(dump(db, "SELECT count(*), sum(id) FROM files"), "2000|2001000"));
          ++queries;
        }
      });
    while (queries < 3) std::this_thread::yield();
    const auto before = pool();
    db.migrate_schema();
    EXPECT_THROW(static_cast<void>(before->lease()), ReaderUnavailable) << "of the old pages";
    const int seen = queries;
    while (queries < seen + 3) std::this_thread::yield();
    done = true;
  }
  EXPECT_EQ(dump(db, FILE_STATE), "8192|0|3");
  EXPECT_EQ(dump(db, "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(dump(db, OLD_ROWS), rows);
  EXPECT_THAT(log.take(), ElementsAre("INFO storage/database: Schema version 3 (recorded 1)"));
  db.close();

  db.connect();
  const auto readers = pool();
  const std::string state = dump(db, "PRAGMA schema_version") + dump(db, "PRAGMA data_version");
  db.create_schema();
  db.migrate_schema();
  EXPECT_EQ(pool(), readers) << "the pool was closed for nothing";
  EXPECT_EQ(dump(db, "PRAGMA schema_version") + dump(db, "PRAGMA data_version"), state);
  EXPECT_THAT(log.lines(), ElementsAre(CURRENT));
}

TEST_F(OldFileSchemaTest, KeepsItsPagesUntilARewriteSucceeds) {
  auto before = pool();
  {
    const FakeDisk gone({});
    EXPECT_THROW(db.migrate_schema(), OSError);
    EXPECT_EQ(pool(), before) << "the pool was closed for nothing";
    const FakeDisk full({{directory.path(), {1, 5 * _MIB}}});
    db.migrate_schema();
  }
  EXPECT_NE(pool(), before);
  before = pool();
  {
    Cursor half_read = db.execute("SELECT * FROM files");
    ASSERT_TRUE(half_read.fetchone());
    EXPECT_THROW(db.migrate_schema(), OperationalError);
  }
  EXPECT_NE(pool(), before);
  ASSERT_NE(pool(), nullptr) << "queries were left to the writer";
  EXPECT_EQ(dump(db, FILE_STATE), "1024|0|3");
  EXPECT_THAT(log.take(),
              ElementsAre("INFO storage/database: Schema version 3 (recorded 1)", CURRENT,
                          HasSubstr("not done, not enough disk space: 5 MiB free in " +
                                    directory.path().string() + ", 65 MiB needed"),
                          CURRENT,
                          HasSubstr("not done, a statement failed\nOperationalError: database table"
                                    " is locked\nPRAGMA wal_checkpoint(TRUNCATE)")));
  db.migrate_schema();
  EXPECT_EQ(dump(db, FILE_STATE), "8192|0|3");
}

TEST_F(OldFileSchemaTest, ThatEndsAtAnotherVersionGetsNoLineAndNoRewrite) {
  db.execute("CREATE TRIGGER no BEFORE INSERT ON schema_info BEGIN SELECT raise(ABORT, 'no'); END");
  EXPECT_THROW(db.migrate_schema(), SchemaMigrationError);
  EXPECT_THAT(log.take(), ElementsAre(HasSubstr("Schema migration to version 2 failed")));
  EXPECT_EQ(dump(db, FILE_STATE), "1024|0|1");
  db.execute("UPDATE schema_info SET value = '4' WHERE key = 'version'");
  db.migrate_schema();
  EXPECT_THAT(log.lines(), ElementsAre());
  EXPECT_EQ(dump(db, FILE_STATE), "1024|0|4");
}

TEST(SchemaTest, NeedsAnOpenDatabaseWhichMayBeInMemory) {
  Database memory(":memory:");
  EXPECT_THROW(memory.create_schema(), RuntimeError);
  EXPECT_THROW(memory.migrate_schema(), RuntimeError);
  open(memory);
  EXPECT_EQ(dump(memory, FILE_STATE), "8192|2|3");
}

}  // namespace
}  // namespace veldra
