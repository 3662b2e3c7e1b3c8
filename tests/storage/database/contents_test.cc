// The index is emptied or replaced as a whole, or it is as before.
#include "support/database_test.h"

namespace veldra {
namespace {

/// Everything that a swap or a clear may change, and what it must not: tables of others, indexes,
/// their statistics, the page cache.
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
    "SELECT 'statistics', group_concat(tbl || idx || stat) FROM (SELECT * FROM sqlite_stat1 "
    "  WHERE tbl NOT LIKE 'code_chunks%' ORDER BY tbl, idx) UNION ALL "
    "SELECT 'generation', user_version FROM pragma_user_version UNION ALL "
    "SELECT 'attached', group_concat(name) FROM pragma_database_list UNION ALL "
    "SELECT 'full text', group_concat(k || v) FROM code_chunks_config UNION ALL "
    "SELECT 'settings', cache_size || secure_delete FROM pragma_cache_size, pragma_secure_delete";

/// Fills the index with rows that carry `mark`: one component, two files, three symbols, four
/// edges, five imports, six error records, seven chunks.
void fill(Database& db, const std::string& mark) {
  static constexpr const char* INSERTS[] = {
      "components (id, name, path) SELECT 8589934592 + i, ?1, ?1",
      "files (id, path, language, hash, component_id) SELECT i, ?1 || i, 'C', '', 8589934593",
      "symbols (id, file_id, name, fqn, kind) SELECT i, 1, ?1, ?1 || i, 'k'",
      "edges (id, source_id, target_id, kind) SELECT i, 1, 3, ?1",
      "external_imports (id, file_id, module) SELECT i, 2, ?1",
      "index_errors (id, file_path, error_type) SELECT i, ?1, 'e'",
      "code_chunks (rowid, text, start_line, end_line, exact) SELECT 1048576 + i, ?1, 1, 40, 1"};
  for (int rows = 0; const std::string insert : INSERTS)
    db.execute(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?2) "
        "INSERT INTO " +
            insert + " FROM n",
        {mark, ++rows});
}

class ContentsTest : public ::testing::Test {
 protected:
  ContentsTest() {
    open(*db);
    fill(*db, "old");
    for (const char* const sql :
         {"CREATE TABLE memories (note TEXT)", "INSERT INTO memories VALUES ('kept')",
          "CREATE INDEX \"some\"\"one's\" ON symbols (upper(name), fqn) WHERE kind <> 'x'",
          "CREATE UNIQUE INDEX unique_fqn ON symbols (fqn)", "ANALYZE", "PRAGMA cache_size=-1234",
          "PRAGMA secure_delete=ON", "PRAGMA user_version = 41"})
      db->execute(sql);
    log.take();
  }

  /// A complete staging file, then changed by `changes`, without foreign keys.
  std::filesystem::path stage(const std::vector<std::string>& changes = {},
                              std::string_view name = "staging.db") {
    std::filesystem::remove(db.directory / name);
    Database staging(db.directory / name);
    open(staging);
    staging.execute("PRAGMA foreign_keys=OFF");
    fill(staging, "new");
    for (const std::string& change : changes) staging.execute(change);
    staging.close();
    log.take();
    return db.directory / name;
  }

  /// As the writer sees it, whose attached files and cache these are.
  std::string state() { return dump(*db->connection(), STATE); }

  LogCapture log;
  TempDatabase db{TempDatabase::State::Unconnected};
};

TEST_F(ContentsTest, ASwapReplacesTheIndexAndNothingElseAndGivesItsSpaceBack) {
  std::string expected = state();
  for (std::size_t at = 0; (at = expected.find("old", at)) < expected.find("memories");)
    expected.replace(at, 3, "new");
  expected.replace(expected.find("41"), 2, "42");
  db->execute("UPDATE index_errors SET message = zeroblob(6000000)");

  // A column that only the staging file has is not looked at.
  const auto staging = stage({"ALTER TABLE symbols ADD COLUMN extra DEFAULT 'x'"});
  EXPECT_EQ(db->swap_index_from(staging).at("code_chunks"), 7);
  EXPECT_EQ(state(), expected);
  EXPECT_THAT(log.take(),
              ElementsAre("INFO storage/database: swap_index_from: replaced live index from " +
                              staging.string() +
                              " (rows inserted: {'components': 1, 'files': 2, 'symbols': 3, "
                              "'edges': 4, 'external_imports': 5, 'index_errors': 6, "
                              "'code_chunks': 7})",
                          ContainsRegex("Compacted .* free pages released \\(3[0-9] -> 0 MiB")));
  EXPECT_TRUE(db->check_integrity());
  db->execute("DELETE FROM files WHERE id = 1");
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM code_chunks"), "0") << "the trigger was lost";

  EXPECT_FALSE(db->swap_index_from(stage({"DROP TABLE code_chunks"})).contains("code_chunks"));

  // What ANALYZE found counts for the writer's next query, and an index that is copied is not made.
  StatementLog statements(*db->connection());
  for (const std::string best : {"edges_by_source", "edges_by_target"}) {
    db->execute(
        "UPDATE sqlite_stat1 SET stat = iif(idx = ?, '9999 1', '9999 999') WHERE tbl = 'edges'",
        {best});
    db->swap_index_from(stage({"DROP INDEX edges_by_source", "DROP INDEX edges_by_target"}));
    EXPECT_THAT(dump(*db->connection(),
                     "EXPLAIN QUERY PLAN SELECT * FROM edges "
                     "WHERE source_id = 1 AND target_id = 2"),
                testing::HasSubstr(best));
  }
  EXPECT_EQ(statements.count("CREATE INDEX edges"), 4);
  EXPECT_EQ(statements.count("CREATE INDEX symbols"), 0);
}

TEST_F(ContentsTest, AStagingFileIsThereBeforeItIsOpened) {
  const std::filesystem::path missing = db.directory / "file:missing";
  EXPECT_THAT([&] { db->swap_index_from(missing); },
              ThrowsMessage<FileNotFoundError>("Staging database not found: " + missing.string()));
  EXPECT_FALSE(std::filesystem::exists(missing)) << "an empty file was made";
}

TEST_F(ContentsTest, ASwapInsideATransactionIsAtomicWithIt) {
  const auto staging = stage();
  const std::string before = dump(*db, STATE);
  const auto swap = [&](bool fail) {
    db->transaction([&](Cursor& cursor) {
      cursor.execute("INSERT INTO memories VALUES ('too')");
      db->swap_index_from(staging);
      EXPECT_EQ(dump(*db, "SELECT DISTINCT name FROM symbols"), "new");
      if (fail) throw 42;
    });
  };
  EXPECT_THROW(swap(true), int);
  EXPECT_EQ(dump(*db, STATE), before);
  // What could not be detached inside the transaction goes with the next statement.
  swap(false);
  db->execute("SELECT 1");
  EXPECT_EQ(sqlite3_db_filename(db->connection()->handle(), "stg"), nullptr);
  EXPECT_THAT(state(), ContainsRegex("memories\\|kept,too\n.*\ngeneration\\|42\n"));

  // A swap that fails and is caught takes no index with it, nor what ANALYZE found.
  constexpr std::string_view KEPT =
      "SELECT sql FROM sqlite_master WHERE tbl_name NOT LIKE 'code%' UNION ALL "
      "SELECT idx || stat FROM sqlite_stat1 WHERE tbl NOT LIKE 'code%' ORDER BY 1";
  const std::string kept = dump(*db, KEPT);
  const auto lacking = stage({"ALTER TABLE symbols DROP COLUMN fqn"}, "lacking.db");
  db->transaction([&](Cursor&) { EXPECT_THROW(db->swap_index_from(lacking), OperationalError); });
  EXPECT_EQ(dump(*db, KEPT), kept);
}

TEST_F(ContentsTest, AStagingFileIsCheckedUnlessVouchedForAndIsNotWrittenToMeanwhile) {
  const auto damaged = stage({"PRAGMA writable_schema = ON",
                              "UPDATE sqlite_master SET sql = replace(sql, '(name)', '(kind)')"});
  const std::string before = state();
  EXPECT_THAT([&] { db->swap_index_from(damaged); },
              ThrowsMessage<Error>("the staging database is damaged: row 1 missing from index "
                                   "symbols_by_name"));
  EXPECT_EQ(state(), before);
  db->transaction([&](Cursor&) {
    db->swap_index_from(damaged, StagingTrust::Vouched);
    EXPECT_TRUE(db->check_integrity()) << "of the index, whose rows are sound";
  });

  const auto staging = stage();
  const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
    if (statement.starts_with("ATTACH")) Connection(staging).execute("DELETE FROM files");
  });
  EXPECT_THAT([&] { db->swap_index_from(staging); },
              ThrowsMessage<OperationalError>(StartsWith("the staging database was written to")));
  EXPECT_THAT([&] { db->swap_index_from(stage(), StagingTrust::Vouched); },
              ThrowsMessage<IntegrityError>("FOREIGN KEY constraint failed"));
}

TEST_F(ContentsTest, WaitsForAWriterOfAnotherProcessAndShowsNothingBeforeTheCommit) {
  const auto staging = stage();
  const auto look = [&] {
    return dump(*db, "SELECT DISTINCT name || text FROM symbols, code_chunks");
  };
  const std::pair<std::function<void()>, std::string> operations[] = {
      {[&] { db->swap_index_from(staging); }, "oldold"}, {[&] { db->clear_all(); }, "newnew"}};
  for (const auto& [replace, before] : operations) {
    int looks = 0;
    const StatementWatch watch(*db->connection(), [&, &rows = before](std::string_view statement) {
      if (statement != "COMMIT") return;
      std::future<std::string> query = std::async(std::launch::async, look);
      EXPECT_TRUE(finished(query)) << "a query waited";
      EXPECT_EQ(query.get(), rows);
      ++looks;
    });
    Connection other(db->db_path);
    other.execute("BEGIN IMMEDIATE");
    std::future<void> replacing = std::async(std::launch::async, replace);
    EXPECT_FALSE(finished(replacing, 100ms)) << "neither waited nor failed";
    other.execute("INSERT INTO memories VALUES ('too')");
    other.execute("COMMIT");
    EXPECT_TRUE(finished(replacing));
    EXPECT_NO_THROW(replacing.get());
    EXPECT_EQ(looks, 1);
  }
  EXPECT_THAT(
      log.take().back(),
      "INFO storage/database: clear_all: cleared all index data (rows removed: {'edges': 4, "
      "'external_imports': 5, 'symbols': 3, 'files': 2, 'components': 1, 'index_errors': 6})");
  EXPECT_THAT(state(),
              MatchesRegex("components\\|NULL\nfiles\\|NULL\nsymbols\\|NULL\nedges\\|NULL\n"
                           "imports\\|NULL\nerrors\\|NULL\nchunks\\|NULL\nmemories\\|kept,too,"
                           "too\n.*generation\\|42\n.*"));
}

}  // namespace
}  // namespace veldra
