// Old files end at this build's version with every row; a step is done whole or not at all.
#include "veldra/storage/migrations.h"

#include "support/database_test.h"
#include "support/old_file.h"

namespace veldra {
namespace {

constexpr std::string_view VERSION = "SELECT value FROM schema_info WHERE key = 'version'";

TransactionOpener opener(Database& db) {
  return [&db](const auto& body) { db.transaction(body); };
}

/// Connected only: the steps alone, without create_schema before them.
class OldFileTest : public testing::Test {
 protected:
  OldFileTest() : db(directory / "index.db") {
    make_old_file(db.db_path, 100);
    db.connect();
  }

  const TempDirectory directory;
  Database db;
  const LogCapture log;
};

TEST_F(OldFileTest, WhateverVersionAnOldFileRecordsItEndsAtThisOneWithEveryRow) {
  // What is done before, the version that is recorded then, how many files the steps mark.
  static constexpr std::string_view CASES[][3] = {
      {"UPDATE schema_info SET value = '1' WHERE key = 'version'", "1", "100"},
      {"UPDATE schema_info SET value = '2' WHERE key = 'version'", "2", "0"},
      {"UPDATE schema_info SET value = 3 WHERE key = 'version'", "3", "0"},
      {"DROP TABLE schema_info", "1", "100"},
  };
  const std::string rows = dump(db, OLD_ROWS);
  Connection other(db.db_path);
  other.execute("PRAGMA busy_timeout=0").fetchall();
  int looks = 0;
  const StatementWatch watch(*db.connection(), [&](std::string_view sql) {
    if (!sql.starts_with("SELECT value FROM schema_info")) return;
    ++looks;
    EXPECT_THROW(other.execute("BEGIN IMMEDIATE"), Error) << "it looked without the write lock";
  });
  for (const auto& [before, recorded, stale] : CASES) {
    SCOPED_TRACE(before);
    db.execute("UPDATE files SET hash = 'parsed'");
    db.execute(before);
    EXPECT_EQ(migrate(opener(db), recorded), SCHEMA_VERSION);
    EXPECT_EQ(dump(db, VERSION), SCHEMA_VERSION);
    EXPECT_EQ(dump(db, OLD_ROWS), rows);
    EXPECT_EQ(dump(db, "SELECT count(*) FROM files WHERE hash = 'stale'"), stale);
  }
  EXPECT_EQ(looks, 5) << "a step ran without looking again";
  EXPECT_EQ(dump(db,
                 "SELECT parent_id, line, (SELECT 1 FROM sqlite_master WHERE type = 'trigger')"
                 " FROM symbols JOIN index_errors USING (id) LIMIT 1"),
            "NULL|NULL|1");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OldFileTest, AnUnknownVersionIsReturnedAndNothingRuns) {
  for (const std::string_view version : {"4", "0", "", "01", "3 "}) {
    db.execute("UPDATE schema_info SET value = ? WHERE key = 'version'", {version});
    EXPECT_EQ(migrate(opener(db), version), version);
    // Another process, of a newer release, has taken the file further since the version was read.
    EXPECT_EQ(migrate(opener(db), "1"), version);
    EXPECT_EQ(dump(db, "SELECT count(*) FROM sqlite_master WHERE name = 'code_chunks'"), "0");
  }
}

TEST_F(OldFileTest, AFailingStepIsLoggedOnceAndLeavesTheVersionBefore) {
  // Step 2 goes through; step 3 has added its columns when it cannot record that.
  db.execute(
      "CREATE TRIGGER no BEFORE INSERT ON schema_info WHEN new.value = '3'"
      " BEGIN SELECT raise(ABORT, 'not this one'); END");
  EXPECT_THROW(migrate(opener(db), "1"), SchemaMigrationError);
  EXPECT_EQ(dump(db, VERSION), "2");
  EXPECT_EQ(dump(db, "SELECT count(*) FROM pragma_table_info('symbols')"), "7") << "half a step";
  EXPECT_THAT(log.lines(),
              ElementsAre("ERROR storage/migrations: Schema migration to version 3 failed\n"
                          "IntegrityError: not this one\n"
                          "INSERT OR REPLACE INTO schema_info (key, value) VALUES ('version', ?)"));
}

TEST_F(OldFileTest, ADatabaseThatIsClosedMeanwhileIsNoFailureOfTheStep) {
  const auto closed = [](auto&&) { throw RuntimeError("Database is closed."); };
  EXPECT_THROW(migrate(closed, "1"), RuntimeError);
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace veldra
