// A new file gets every table at once; at a later open only what is missing is added.
#include "veldra/storage/core_schema.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <vector>

#include "support/finished.h"
#include "support/old_file.h"
#include "support/temp_database.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

constexpr std::string_view TABLES =
    "SELECT m.name || '(' || group_concat(c.name, ', ') || ')' FROM sqlite_master AS m,"
    " pragma_table_info(m.name) AS c WHERE m.type = 'table' AND m.name NOT LIKE 'code_chunks_%'"
    " GROUP BY m.name ORDER BY m.name";

constexpr std::string_view TABLES_OF_A_NEW_FILE =
    "code_chunks(text, start_line, end_line, exact)\n"
    "components(id, name, path)\n"
    "edges(id, source_id, target_id, kind, line)\n"
    "external_imports(id, file_id, module, line)\n"
    "files(id, path, language, hash, size, component_id)\n"
    "index_errors(id, file_path, error_type, message, line)\n"
    "schema_info(key, value)\n"
    "symbols(id, file_id, name, fqn, kind, start_line, end_line, parent_id)";

void add_file(Database& db, std::int64_t id) {
  db.execute("INSERT INTO files (id, path, language, hash) VALUES (?, 'p' || ?, 'C', 'h')",
             {id, id});
}

TEST(CoreSchemaTest, ANewFileHasEveryTableAndRecordsItsVersion) {
  TempDatabase db(TempDatabase::State::Connected);
  db->create_schema();
  EXPECT_EQ(dump(*db, TABLES), TABLES_OF_A_NEW_FILE);
  EXPECT_EQ(dump(*db, "SELECT * FROM schema_info"), "version|3");
}

TEST(CoreSchemaTest, EveryForeignKeyHasAnIndexForItsChildren) {
  TempDatabase db;
  EXPECT_EQ(dump(*db,
                 "SELECT m.name, f.\"from\" FROM sqlite_master AS m,"
                 " pragma_foreign_key_list(m.name) AS f WHERE m.type = 'table' AND NOT EXISTS"
                 " (SELECT 1 FROM pragma_index_list(m.name) AS i, pragma_index_info(i.name) AS c"
                 " WHERE c.seqno = 0 AND c.name = f.\"from\")"),
            "")
      << "deleting a parent scans these children";
}

TEST(CoreSchemaTest, ConstraintsRefuseWhatTheIndexMustNotHold) {
  TempDatabase db;
  add_file(*db, 1);
  db->execute("INSERT INTO components (id, name, path) VALUES (1, 'core', 'src')");
  static constexpr std::string_view refused[] = {
      "INSERT INTO components (name, path) VALUES ('core', 'lib')",
      "INSERT INTO components (name) VALUES ('c')",
      "INSERT INTO files (path, language, hash) VALUES ('p1', 'C', 'h')",
      "INSERT INTO files (path, hash) VALUES ('p2', 'h')",
      "INSERT INTO files (path, language) VALUES ('p2', 'C')",
      "UPDATE files SET component_id = 2",
      "INSERT INTO symbols (name, kind) VALUES ('f', 'function')",
      "INSERT INTO symbols (file_id, name, kind) VALUES (2, 'f', 'function')",
      "INSERT INTO symbols (file_id, kind) VALUES (1, 'function')",
      "INSERT INTO edges (source_id, target_id, kind) VALUES (7, 7, 'calls')",
      "INSERT INTO external_imports (file_id) VALUES (1)",
      "INSERT INTO external_imports (file_id, module) VALUES (2, 'os')",
      "INSERT INTO index_errors (file_path) VALUES ('p1')",
      "INSERT INTO index_errors (error_type) VALUES ('io_error')",
      "INSERT INTO schema_info (key, value) VALUES ('version', '4')",
  };
  for (const std::string_view sql : refused) EXPECT_THROW(db->execute(sql), IntegrityError) << sql;
}

TEST(CoreSchemaTest, DeletingAFileTakesWhatBelongsToItAndNothingElse) {
  TempDatabase db;
  const std::int64_t big = std::int64_t{1} << 33;
  for (const std::int64_t id : {std::int64_t{1}, std::int64_t{2}, big}) {
    add_file(*db, id);
    db->execute("INSERT INTO symbols (id, file_id, name, kind) VALUES (?, ?, 'f', 'function')",
                {id, id});
    db->execute("INSERT INTO external_imports (file_id, module) VALUES (?, 'os')", {id});
    for (const std::int64_t ordinal : {std::int64_t{0}, CHUNKS_PER_FILE - 1})
      db->execute(
          "INSERT INTO code_chunks (rowid, text, start_line, end_line, exact)"
          " VALUES (?, 'x', 1, 2, 1)",
          {id * CHUNKS_PER_FILE + ordinal});
  }
  db->execute("INSERT INTO components (id, name, path) VALUES (1, 'core', 'src')");
  db->execute("UPDATE files SET component_id = 1");
  db->execute(
      "INSERT INTO edges (source_id, target_id, kind) VALUES (1, 2, 'calls'), (2, ?, 'calls')",
      {big});
  db->execute("DELETE FROM files WHERE id = 2");
  EXPECT_EQ(dump(*db, "SELECT rowid / 1048576, rowid % 1048576 FROM code_chunks ORDER BY rowid"),
            "1|0\n1|1048575\n8589934592|0\n8589934592|1048575");
  EXPECT_EQ(dump(*db, "SELECT file_id FROM symbols ORDER BY 1"), "1\n8589934592");
  EXPECT_EQ(dump(*db, "SELECT file_id FROM external_imports ORDER BY 1"), "1\n8589934592");
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM edges"), "0");
  db->execute("DELETE FROM components");
  EXPECT_EQ(dump(*db, "SELECT count(*), count(component_id) FROM files"), "2|0");
}

TEST(CoreSchemaTest, AnIdentifierWithUnderscoresIsOneWordAndOnlyTheTextIsSearched) {
  TempDatabase db;
  db->execute("INSERT INTO code_chunks VALUES ('void swap_index_from(4242)', 7, 9, 1)");
  const auto hits = [&](std::string_view text) {
    return db->fetchall("SELECT 1 FROM code_chunks WHERE code_chunks MATCH ?", {text}).size();
  };
  EXPECT_EQ(hits("swap_index_from"), 1U);
  EXPECT_EQ(hits("index"), 0U);
  EXPECT_EQ(hits("4242"), 1U);
  EXPECT_EQ(hits("9"), 0U) << "a line number was indexed as text";
}

TEST(CoreSchemaTest, AFileWithSomeTablesGetsTheOthersAndKeepsItsVersion) {
  const TempDirectory directory;
  make_old_file(directory / "index.db", 3);
  const std::string rows = as_another_process(directory / "index.db", OLD_ROWS);
  Database db(directory / "index.db");
  db.connect();
  db.create_schema();
  EXPECT_EQ(dump(db, OLD_ROWS), rows);
  EXPECT_EQ(dump(db, "SELECT value FROM schema_info WHERE key = 'version'"), "1");
  EXPECT_EQ(dump(db,
                 "SELECT count(*) FROM sqlite_master WHERE name IN"
                 " ('code_chunks', 'files_delete_chunks', 'symbols_by_name')"),
            "3");
  EXPECT_EQ(dump(db, "SELECT count(*) FROM pragma_table_info('symbols')"), "7")
      << "an existing table was changed";
}

TEST(CoreSchemaTest, NothingMissingMeansNoWriteLockAndNoWrite) {
  TempDatabase db;
  Connection other(db->db_path);
  other.execute("BEGIN IMMEDIATE");
  std::future<void> created = std::async(std::launch::async, [&] { db->create_schema(); });
  EXPECT_TRUE(finished(created, std::chrono::seconds(3)))
      << "it waited for another process's write";
  other.execute("ROLLBACK");
}

TEST(CoreSchemaTest, ManyWhoFindANewFileAtOnceAllEndWithACompleteOne) {
  for (int round = 0; round < 5; ++round) {
    const TempDirectory directory;
    std::vector<std::unique_ptr<Database>> openers;
    for (int i = 0; i < 4; ++i) {
      openers.push_back(std::make_unique<Database>(directory / "index.db"));
      openers.back()->connect();
    }
    std::vector<std::future<void>> created;
    for (const auto& db : openers)
      created.push_back(std::async(std::launch::async, [&db] { db->create_schema(); }));
    for (std::future<void>& one : created) EXPECT_NO_THROW(one.get());
    for (const auto& db : openers) {
      EXPECT_EQ(dump(*db, TABLES), TABLES_OF_A_NEW_FILE);
      EXPECT_EQ(dump(*db, "SELECT * FROM schema_info"), "version|3");
    }
  }
}

}  // namespace
}  // namespace veldra
