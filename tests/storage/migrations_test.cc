// Old files end at this build's version with every row; a step is done whole or not at all.
#include "veldra/storage/migrations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/statement_watch.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::string_view VERSION = "SELECT value FROM schema_info WHERE key = 'version'";

TransactionOpener opener(Database& db) {
  return [&db](const auto& body) { db.transaction(body); };
}

/// Connected only: the steps alone, without create_schema before them.
class OldFileTest : public testing::Test {
 protected:
  OldFileTest() : db(directory / "index.db") {
    make_old_file(db.db_path, 100);
    rows = as_another_process(db.db_path, OLD_ROWS);
    db.connect();
  }

  const TempDirectory directory;
  Database db;
  std::string rows;
  const LogCapture log;
};

TEST_F(OldFileTest, WhateverVersionAnOldFileRecordsItEndsAtThisOneWithEveryRow) {
  struct Case {
    std::string_view before;
    std::string_view recorded;
    std::string_view stale;  // how many files the steps mark
  };
  static constexpr Case cases[] = {
      {"UPDATE schema_info SET value = '1' WHERE key = 'version'", "1", "100"},
      {"UPDATE schema_info SET value = '2' WHERE key = 'version'", "2", "0"},
      {"UPDATE schema_info SET value = 3 WHERE key = 'version'", "3", "0"},
      {"UPDATE schema_info SET value = NULL WHERE key = 'version'", "1", "100"},
      {"DELETE FROM schema_info WHERE key = 'version'", "1", "100"},
      {"DROP TABLE schema_info", "1", "100"},
  };
  for (const auto& [before, recorded, stale] : cases) {
    SCOPED_TRACE(before);
    db.execute("UPDATE files SET hash = 'parsed'");
    db.execute(before);
    EXPECT_EQ(migrate(opener(db), recorded), SCHEMA_VERSION);
    EXPECT_EQ(dump(db, VERSION), SCHEMA_VERSION);
    EXPECT_EQ(dump(db, OLD_ROWS), rows);
    EXPECT_EQ(dump(db, "SELECT count(*) FROM files WHERE hash = 'stale'"), stale);
  }
  EXPECT_EQ(dump(db, "SELECT parent_id, s.line FROM symbols, index_errors AS s LIMIT 1"),
            "NULL|NULL");
  db.execute("INSERT INTO code_chunks (rowid, text) VALUES (1048576, 'x')");
  db.execute("DELETE FROM files WHERE id = 1");
  EXPECT_EQ(dump(db, "SELECT count(*) FROM code_chunks"), "0") << "the trigger is missing";
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(OldFileTest, AnUnknownVersionIsReturnedAndNothingRuns) {
  for (const std::string_view version : {"4", "0", "", "1.0", "01", "3 "}) {
    db.execute("UPDATE schema_info SET value = ? WHERE key = 'version'", {version});
    EXPECT_EQ(migrate(opener(db), version), version);
    EXPECT_EQ(dump(db, VERSION), version);
    // Another process, of a newer release, has taken the file further since the version was read.
    EXPECT_EQ(migrate(opener(db), "1"), version);
    EXPECT_EQ(dump(db, "SELECT count(*) FROM sqlite_master WHERE name = 'code_chunks'"), "0");
  }
}

TEST_F(OldFileTest, AStepHoldsTheWriteLockBeforeItsFirstLook) {
  Connection other(db.db_path);
  other.execute("PRAGMA busy_timeout=0").fetchall();
  int looks = 0;
  const StatementWatch watch(*db.connection(), [&](std::string_view sql) {
    if (!sql.starts_with("SELECT value FROM schema_info")) return;
    ++looks;
    EXPECT_THROW(other.execute("BEGIN IMMEDIATE"), OperationalError);
  });
  EXPECT_EQ(migrate(opener(db), "1"), SCHEMA_VERSION);
  EXPECT_EQ(looks, 2) << "a step ran without looking again";
}

TEST_F(OldFileTest, AFailingStepIsLoggedOnceAndLeavesTheVersionBefore) {
  // Step 2 goes through; step 3 has added its columns when it cannot record that.
  db.execute(
      "CREATE TRIGGER no BEFORE INSERT ON schema_info WHEN new.value = '3'"
      " BEGIN SELECT raise(ABORT, 'not this one'); END");
  EXPECT_THROW(migrate(opener(db), "1"), SchemaMigrationError);
  EXPECT_THAT(log.lines(),
              ElementsAre("ERROR storage/migrations: Schema migration to version 3 failed\n"
                          "IntegrityError: not this one\n"
                          "INSERT OR REPLACE INTO schema_info (key, value) VALUES ('version', ?)"));
  EXPECT_EQ(dump(db, VERSION), "2");
  EXPECT_EQ(dump(db, "SELECT count(*) FROM pragma_table_info('symbols')"), "7");
  db.execute("DROP TRIGGER no");
  EXPECT_EQ(migrate(opener(db), "2"), SCHEMA_VERSION);
}

TEST_F(OldFileTest, AnErrorThatIsNotSqlitesFailsTheStepToo) {
  db.close();
  EXPECT_THROW(migrate(opener(db), "1"), SchemaMigrationError);
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("\nRuntimeError: Database is closed.\nBEGIN")));
}

TEST(MigrationsTest, AFileWithoutTheTablesOfTheFirstReleaseIsNoFailure) {
  TempDatabase db(TempDatabase::State::Connected);
  EXPECT_EQ(migrate(opener(*db), OLDEST_VERSION), SCHEMA_VERSION);
  db->create_schema();
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM pragma_table_info('symbols')"), "8");
}

// The other process of the next test.
TEST(MigrationsChild, DISABLED_OpensTheFile) {
  Database db(child_argument());
  open(db);
  EXPECT_EQ(dump(db, VERSION), SCHEMA_VERSION);
  db.close();
}

TEST(MigrationsTest, ProcessesAndThreadsThatOpenAnOldFileAtOnceAllEndWithAMigratedOne) {
  const TempDirectory directory;
  const std::filesystem::path path = directory / "index.db";
  make_old_file(path, 2000);
  const std::string rows = as_another_process(path, OLD_ROWS);
  {
    std::vector<std::future<void>> threads;
    ChildProcess child(this_program_running("MigrationsChild.DISABLED_OpensTheFile"),
                       with_child_argument(path.string()));
    for (int i = 0; i < 2; ++i)
      threads.push_back(std::async(std::launch::async, [&] {
        Database db(path);
        open(db);
        EXPECT_EQ(dump(db, VERSION), SCHEMA_VERSION);
        db.close();
      }));
    for (std::future<void>& thread : threads) EXPECT_NO_THROW(thread.get());
    EXPECT_EQ(child.wait(), 0);
  }
  EXPECT_EQ(as_another_process(path, OLD_ROWS), rows);
  EXPECT_EQ(as_another_process(path, "PRAGMA integrity_check"), "ok");
  EXPECT_EQ(as_another_process(path, "SELECT count(*) FROM files WHERE hash <> 'stale'"), "0");
}

TEST(MigrationsTest, MarkFilesStaleCountsThoseThatWereNot) {
  TempDatabase db;
  db->execute(
      "INSERT INTO files (path, language, hash) VALUES ('a', 'Go', 'h'), ('b', 'Go', 'stale'),"
      " ('c', 'go', 'h'), ('d', 'C', 'h'), ('e', 'Go', 'i')");
  const auto mark = [&](const std::vector<std::string>& languages) {
    std::int64_t marked = -1;
    db->transaction([&](Cursor& cursor) { marked = mark_files_stale(cursor, languages); });
    return marked;
  };
  EXPECT_EQ(mark({"Ada", "C", "Go"}), 3);
  EXPECT_EQ(dump(*db, "SELECT group_concat(path) FROM files WHERE hash = 'stale'"), "a,b,d,e");
  EXPECT_EQ(mark({"Go"}), 0);
}

TEST(MigrationsTest, RunDdlRunsStatementAfterStatementAndStopsAtAnError) {
  TempDatabase db;
  db->transaction([](Cursor& cursor) {
    run_ddl(cursor,
            "CREATE TABLE a (x DEFAULT 'one;two'); -- a note; with a semicolon\n"
            "CREATE TRIGGER t AFTER INSERT ON a BEGIN DELETE FROM a WHERE x = ';'; SELECT 1; END;\n"
            "/* ; */ CREATE INDEX i ON a (x) ; ; -- the end");
    run_ddl(cursor, "");
    run_ddl(cursor, "CREATE VIEW v AS SELECT 1");
    EXPECT_THROW(run_ddl(cursor, "CREATE TABLE b (x); CREATE TABLE a (x); CREATE TABLE c (x)"),
                 OperationalError);
  });
  EXPECT_EQ(dump(*db,
                 "SELECT group_concat(name) FROM (SELECT name FROM sqlite_master WHERE name IN"
                 " ('a', 't', 'i', 'v', 'b', 'c') ORDER BY name)"),
            "a,b,i,t,v");
}

}  // namespace
}  // namespace veldra
