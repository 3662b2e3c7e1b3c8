// The index is emptied or replaced as a whole, or it is as before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "support/finished.h"
#include "support/log_capture.h"
#include "support/statement_log.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Everything that a swap or a clear may change, and the tables that it must not.
constexpr std::string_view STATE =
    "SELECT 'components', group_concat(id || name || path) FROM components UNION ALL "
    "SELECT 'files', group_concat(id || path || ifnull(component_id, '')) FROM files UNION ALL "
    "SELECT 'symbols', group_concat(id || name || file_id) FROM symbols UNION ALL "
    "SELECT 'edges', group_concat(id || kind || source_id || target_id) FROM edges UNION ALL "
    "SELECT 'imports', group_concat(id || module) FROM external_imports UNION ALL "
    "SELECT 'errors', group_concat(id || file_path) FROM index_errors UNION ALL "
    "SELECT 'chunks', group_concat(rowid || text) FROM code_chunks UNION ALL "
    "SELECT 'memories', group_concat(note) FROM memories UNION ALL "
    "SELECT 'schema', group_concat(sql, char(10)) FROM (SELECT sql FROM sqlite_master "
    "  WHERE type <> 'table' ORDER BY name) UNION ALL "
    "SELECT 'generation', user_version FROM pragma_user_version UNION ALL "
    "SELECT 'attached', group_concat(name) FROM pragma_database_list UNION ALL "
    "SELECT 'cache', cache_size FROM pragma_cache_size";

/// As the writer sees it, whose attached files and cache these are.
std::string state(Database& db) {
  return dump(*db.connection(), STATE);
}

/// Fills the index with rows that carry `mark`: one component, two files, three symbols, four
/// edges, five imports, six error records, seven chunks.
void fill(Database& db, const std::string& mark) {
  const auto rows = [&](int count, const std::string& insert) {
    db.execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?2) " +
                   insert + " FROM n",
               {mark, count});
  };
  db.transaction([&](Cursor&) {
    rows(1, "INSERT INTO components (id, name, path) SELECT 4294967296 * 2 + i, ?1, ?1");
    rows(2,
         "INSERT INTO files (id, path, language, hash, component_id) "
         "SELECT i, ?1 || i, 'C', '', 4294967296 * 2 + 1");
    rows(3, "INSERT INTO symbols (id, file_id, name, fqn, kind) SELECT i, 1, ?1, ?1 || i, 'k'");
    rows(4, "INSERT INTO edges (id, source_id, target_id, kind) SELECT i, 1, 3, ?1");
    rows(5, "INSERT INTO external_imports (id, file_id, module) SELECT i, 2, ?1");
    rows(6, "INSERT INTO index_errors (id, file_path, error_type) SELECT i, ?1, 'e'");
    rows(7,
         "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact) "
         "SELECT 1048576 + i, ?1, 1, 40, 1");
  });
}

class ContentsTest : public ::testing::Test {
 protected:
  ContentsTest() {
    open(*db);
    db->execute("CREATE TABLE memories (note TEXT)");
    db->execute("INSERT INTO memories VALUES ('kept')");
    db->execute("PRAGMA user_version = 41");
    fill(*db, "old");
    log.take();
  }

  /// A complete staging file, then changed by `changes`, without foreign keys.
  std::filesystem::path stage(const std::vector<std::string>& changes = {},
                              std::string_view name = "staging.db") {
    Database staging(db.directory / name);
    open(staging);
    fill(staging, "new");
    staging.execute("PRAGMA foreign_keys=OFF");
    for (const std::string& change : changes) staging.execute(change);
    staging.close();
    log.take();
    return db.directory / name;
  }

  LogCapture log;
  TempDatabase db{TempDatabase::State::Unconnected};
};

TEST_F(ContentsTest, ClearingEmptiesTheIndexAndCountsWhatItRemoved) {
  db->clear_all();
  EXPECT_THAT(log.take(),
              ElementsAre("INFO storage/database: clear_all: cleared all index data (rows removed: "
                          "{'edges': 4, 'external_imports': 5, 'symbols': 3, 'files': 2, "
                          "'components': 1, 'index_errors': 6})"));
  EXPECT_THAT(state(*db), ::testing::StartsWith("components|NULL\nfiles|NULL\nsymbols|NULL\n"
                                                "edges|NULL\nimports|NULL\nerrors|NULL\n"
                                                "chunks|NULL\nmemories|kept\n"));
  EXPECT_EQ(db->index_generation(), 41);
  db->clear_all();
  EXPECT_THAT(log.take(),
              ElementsAre("INFO storage/database: clear_all: cleared all index data (rows removed: "
                          "{'edges': 0, 'external_imports': 0, 'symbols': 0, 'files': 0, "
                          "'components': 0, 'index_errors': 0})"));
}

TEST_F(ContentsTest, AClearThatFailsClearsNothing) {
  db->execute(
      "CREATE TRIGGER refuse BEFORE DELETE ON index_errors BEGIN SELECT RAISE(ABORT, 'no'); END");
  const std::string before = state(*db);
  EXPECT_THROW(db->clear_all(), IntegrityError);
  EXPECT_EQ(state(*db), before);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ContentsTest, ASwapReplacesTheIndexAndNothingElse) {
  db->execute("CREATE INDEX \"some\"\"one's\" ON symbols (upper(name), fqn) WHERE kind <> 'x'");
  db->execute("CREATE UNIQUE INDEX unique_fqn ON symbols (fqn)");
  db->execute("PRAGMA cache_size=-1234");
  std::string expected = state(*db);
  for (std::size_t at = 0; (at = expected.find("old", at)) < expected.find("memories");)
    expected.replace(at, 3, "new");
  expected.replace(expected.find("41"), 2, "42");

  // A column that only the staging file has is not looked at.
  const auto staging = stage({"ALTER TABLE symbols ADD COLUMN extra DEFAULT 'x'"});
  const StatementLog statements(*db->connection());
  EXPECT_EQ(db->swap_index_from(staging), (RowCounts{{"components", 1},
                                                     {"files", 2},
                                                     {"symbols", 3},
                                                     {"edges", 4},
                                                     {"external_imports", 5},
                                                     {"index_errors", 6},
                                                     {"code_chunks", 7}}));
  EXPECT_EQ(state(*db), expected);
  EXPECT_THAT(log.take(),
              ElementsAre("INFO storage/database: swap_index_from: replaced live index from " +
                          staging.string() +
                          " (rows inserted: {'components': 1, 'files': 2, 'symbols': 3, 'edges': "
                          "4, 'external_imports': 5, 'index_errors': 6, 'code_chunks': 7})"));
  EXPECT_EQ(statements.count("BEGIN"), 1);
  EXPECT_EQ(statements.count("COMMIT"), 1);
  EXPECT_EQ(statements.count("PRAGMA main.cache_size=-49152"), 1);
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM code_chunks('new')"), "7");
  EXPECT_TRUE(db->check_integrity());
  // The trigger works on the chunks that came.
  db->execute("DELETE FROM files WHERE id = 1");
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM code_chunks"), "0");
}

TEST_F(ContentsTest, ChunksAreCopiedWhenBothFilesHaveThem) {
  auto counts = db->swap_index_from(stage({"DROP TABLE code_chunks"}));
  EXPECT_FALSE(counts.contains("code_chunks"));
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM code_chunks"), "0") << "chunks of the old files stayed";

  // A plain table serves as well, and an empty staging file empties the index.
  counts = db->swap_index_from(stage(
      {"DROP TABLE code_chunks", "CREATE TABLE code_chunks (text, start_line, end_line, exact)",
       "DELETE FROM edges", "DELETE FROM external_imports", "DELETE FROM symbols",
       "DELETE FROM files", "DELETE FROM components", "DELETE FROM index_errors"},
      "empty.db"));
  EXPECT_EQ(counts.size(), 7U);
  for (const auto& [table, count] : counts) EXPECT_EQ(count, 0) << table;
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM files"), "0");

  db->execute("DROP TRIGGER files_delete_chunks");
  db->execute("DROP TABLE code_chunks");
  counts = db->swap_index_from(db.directory / "staging.db");
  EXPECT_EQ(counts.size(), 6U);
  EXPECT_EQ(db->index_generation(), 44);
}

TEST_F(ContentsTest, ASwapThatFailsLeavesEverythingAsItWasAndTheNextOneSucceeds) {
  db->execute("CREATE UNIQUE INDEX unique_fqn ON symbols (fqn)");
  db->execute("CREATE INDEX somebodys ON edges (line)");
  db->execute("PRAGMA cache_size=-1234");
  const std::string before = state(*db);
  struct Case {
    std::string change;  // of the staging file
    std::string error;
  };
  const Case cases[] = {
      {"ALTER TABLE symbols DROP COLUMN fqn", "no such column: fqn"},
      {"DROP TABLE index_errors", "no such table: stg.index_errors"},
      {"UPDATE symbols SET fqn = 'twice'", "UNIQUE constraint failed: symbols.fqn"},
      {"UPDATE edges SET target_id = 1024", "FOREIGN KEY constraint failed"},
      {"UPDATE files SET component_id = 1", "FOREIGN KEY constraint failed"},
      {"DROP TABLE code_chunks; CREATE TABLE code_chunks (text)", "no such column: start_line"},
  };
  for (const auto& [change, expected] : cases) {
    const std::size_t semicolon = change.find("; ");
    std::vector<std::string> changes = {change.substr(0, semicolon)};
    if (semicolon != std::string::npos) changes.push_back(change.substr(semicolon + 2));
    const auto staging = stage(changes);
    try {
      db->swap_index_from(staging);
      ADD_FAILURE() << "swapped in after " << change;
    } catch (const Error& error) {
      EXPECT_EQ(error.what(), expected);
    }
    EXPECT_EQ(state(*db), before) << change;
    EXPECT_THAT(log.take(), IsEmpty());
    std::filesystem::remove(staging);
  }
  std::ofstream(db.directory / "text") << std::string(8192, 'x');
  EXPECT_THROW(db->swap_index_from(db.directory / "text"), Error);
  EXPECT_EQ(state(*db), before);
  db->swap_index_from(stage());
  EXPECT_EQ(db->index_generation(), 42);
}

TEST_F(ContentsTest, AStagingFileIsAnotherRegularFile) {
  const std::string before = state(*db);
  std::filesystem::create_symlink("nowhere", db.directory / "dangling");
  for (const char* const name : {"missing.db", "missing/staging.db", "dangling"}) {
    const std::filesystem::path path = db.directory / name;
    try {
      db->swap_index_from(path);
      ADD_FAILURE() << name << " was found";
    } catch (const FileNotFoundError& error) {
      EXPECT_EQ(error.what(), "Staging database not found: " + path.string());
    }
    EXPECT_FALSE(std::filesystem::exists(path)) << "an empty file was made";
  }
  ASSERT_EQ(::mkfifo((db.directory / "pipe").c_str(), 0600), 0);
  std::filesystem::create_hard_link(db->db_path, db.directory / "hard");
  std::filesystem::create_symlink(db->db_path, db.directory / "soft");
  for (const auto& path : {db->db_path, db.directory / "hard", db.directory / "soft",
                           db.directory / "pipe", db.directory.path()})
    EXPECT_THROW(db->swap_index_from(path), Error) << path;
  EXPECT_EQ(state(*db), before);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ContentsTest, AStagingFileMayHaveAnyName) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(db.directory.path());  // a name alone, as a URI would begin
  std::int64_t generation = 41;
  for (const char* const name :
       {"file:x?mode=memory", ":staging", "a?b#c%41", "it's \"q\"", " blank "}) {
    stage({}, name);
    EXPECT_EQ(db->swap_index_from(name).at("symbols"), 3) << name;
    EXPECT_EQ(db->index_generation(), ++generation);
  }
  std::filesystem::current_path(before);
}

TEST_F(ContentsTest, NeedsAnOpenDatabase) {
  const auto staging = stage();
  db->close();
  EXPECT_THROW(db->swap_index_from(staging), RuntimeError);
  EXPECT_THROW(db->swap_index_from(db.directory / "missing"), FileNotFoundError);
  EXPECT_THROW(db->clear_all(), RuntimeError);
  db->connect();
  EXPECT_EQ(db->swap_index_from(staging).size(), 7U) << "the lock was kept";
}

TEST_F(ContentsTest, ASwapInsideATransactionIsAtomicWithIt) {
  const auto staging = stage();
  const std::string before = dump(*db, "SELECT group_concat(name) FROM symbols");
  EXPECT_THROW(db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO memories VALUES ('lost')");
    db->swap_index_from(staging);
    EXPECT_EQ(dump(*db, "SELECT DISTINCT name FROM symbols"), "new");
    throw 42;
  }),
               int);
  EXPECT_EQ(dump(*db, "SELECT group_concat(name) FROM symbols"), before);
  EXPECT_EQ(dump(*db, "SELECT note FROM memories"), "kept");
  EXPECT_EQ(db->index_generation(), 41);
  // What could not be detached inside the transaction is in nobody's way, twice.
  db->transaction([&](Cursor& cursor) {
    cursor.execute("INSERT INTO memories VALUES ('too')");
    db->swap_index_from(staging);
  });
  EXPECT_EQ(db->swap_index_from(staging).at("files"), 2);
  EXPECT_EQ(db->index_generation(), 43);
  EXPECT_EQ(dump(*db, "SELECT group_concat(note) FROM memories"), "kept,too");
  EXPECT_EQ(dump(*db->connection(), "SELECT group_concat(name) FROM pragma_database_list"), "main");
}

TEST_F(ContentsTest, WaitsForAWriterOfAnotherProcess) {
  const auto staging = stage();
  for (const bool swaps : {true, false}) {
    Connection other(db->db_path);
    other.execute("BEGIN IMMEDIATE");
    std::future<void> replacing = std::async(std::launch::async, [&] {
      if (swaps)
        db->swap_index_from(staging);
      else
        db->clear_all();
    });
    EXPECT_FALSE(finished(replacing, 100ms)) << "neither waited nor failed";
    other.execute("INSERT INTO memories VALUES ('too')");
    other.execute("COMMIT");
    EXPECT_TRUE(finished(replacing));
    EXPECT_NO_THROW(replacing.get());
  }
  EXPECT_EQ(dump(*db, "SELECT group_concat(note) FROM memories"), "kept,too,too");
}

TEST_F(ContentsTest, QueriesOfOthersSeeTheOldRowsUntilTheCommit) {
  const auto staging = stage();
  const auto look = [&] {
    return dump(*db,
                "SELECT group_concat(DISTINCT name), (SELECT count(*) FROM code_chunks('old'))"
                " FROM symbols");
  };
  int looks = 0;
  {
    const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
      if (!statement.starts_with("INSERT INTO edges") && statement != "COMMIT") return;
      std::future<std::string> other = std::async(std::launch::async, look);
      EXPECT_TRUE(finished(other)) << "a query waited for the swap";
      EXPECT_EQ(other.get(), "old|7") << "seen before " << statement;
      ++looks;
    });
    db->swap_index_from(staging);
  }
  EXPECT_EQ(looks, 2);
  EXPECT_EQ(look(), "new|0");
}

TEST_F(ContentsTest, ASwapGivesItsSpaceBackAndKeepsTheStatisticsOfThePlanner) {
  db->execute("CREATE INDEX somebodys ON edges (line)");
  db->execute("ANALYZE");
  static constexpr std::string_view STATISTICS =
      "SELECT tbl, idx, stat FROM sqlite_stat1 WHERE tbl NOT LIKE 'code_chunks%' ORDER BY 1, 2";
  const std::string before = dump(*db, STATISTICS);
  db->execute("UPDATE index_errors SET message = zeroblob(6000000)");
  db->swap_index_from(stage());
  EXPECT_LT(std::filesystem::file_size(db->db_path), 1'000'000U);
  const std::vector<std::string> lines = log.take();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[1], ::testing::ContainsRegex("^INFO storage/database: Compacted .*index.db: "
                                                 "[0-9]+ free pages released \\(3[0-9] -> 0 MiB\\)"
                                                 " in [0-9]+\\.[0-9]s$"));
  EXPECT_EQ(dump(*db, STATISTICS), before) << "a table of another's lost rows";
}

}  // namespace
}  // namespace veldra
