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

TEST(CoreSchemaTest, ManyWhoFindANewFileAtOnceAllEndWithACompleteOne) {
  const TempDirectory directory;
  std::vector<std::unique_ptr<Database>> openers;
  for (int i = 0; i < 6; ++i) {
    openers.push_back(std::make_unique<Database>(directory / "index.db"));
    openers.back()->connect();
  }
  std::vector<std::future<void>> created;
  for (const auto& db : openers)
    created.push_back(std::async(std::launch::async, [&db] { db->create_schema(); }));
  for (std::future<void>& one : created) EXPECT_NO_THROW(one.get());
  for (const auto& db : openers) {
    EXPECT_EQ(dump(*db,
                   "SELECT m.name || count(*) FROM sqlite_master AS m, pragma_table_info(m.name)"
                   " WHERE m.type = 'table' AND m.name NOT LIKE 'code_chunks_%' GROUP BY m.name"),
              "code_chunks4\ncomponents3\nedges5\nexternal_imports4\nfiles6\nindex_errors5\n"
              "schema_info2\nsymbols8");
    EXPECT_EQ(dump(*db, "SELECT * FROM schema_info"), "version|3");
  }
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

TEST(CoreSchemaTest, DeletingAFileTakesWhatBelongsToItAndNothingElse) {
  TempDatabase db;
  constexpr std::int64_t big = std::int64_t{1} << 33;
  db->execute("INSERT INTO components (id, name, path) VALUES (1, 'core', 'src')");
  for (const std::int64_t id : {big >> 33, big >> 32, big}) {
    db->execute("INSERT INTO files VALUES (?, 'p' || ?, 'C', 'h', NULL, 1)", {id, id});
    db->execute("INSERT INTO symbols (id, file_id, name, kind) VALUES (?, ?, 'f', '')", {id, id});
    db->execute("INSERT INTO external_imports (file_id, module) VALUES (?, 'os')", {id});
    for (const std::int64_t ordinal : {std::int64_t{0}, CHUNKS_PER_FILE - 1})
      db->execute("INSERT INTO code_chunks (rowid, text) VALUES (?, 'x')",
                  {id * CHUNKS_PER_FILE + ordinal});
  }
  db->execute("INSERT INTO edges (source_id, target_id, kind) VALUES (1, 2, ''), (2, ?, '')",
              {big});
  for (const char* refused :
       {"INSERT INTO components (name, path) VALUES ('core', 'lib')",
        "UPDATE files SET path = 'p1'", "INSERT INTO files (path, language) VALUES ('p3', 'C')",
        "UPDATE files SET component_id = 2", "UPDATE symbols SET file_id = 7",
        "UPDATE edges SET target_id = 7",
        "INSERT INTO schema_info (key, value) VALUES ('version', '4')"})
    EXPECT_THROW(db->execute(refused), IntegrityError) << refused;

  db->execute("DELETE FROM files WHERE id = 2");
  EXPECT_EQ(dump(*db, "SELECT rowid / 1048576, rowid % 1048576 FROM code_chunks ORDER BY rowid"),
            "1|0\n1|1048575\n8589934592|0\n8589934592|1048575");
  EXPECT_EQ(
      dump(*db, "SELECT s.id, i.id FROM symbols AS s JOIN external_imports AS i USING (file_id)"),
      "1|1\n8589934592|3");
  db->execute("DELETE FROM components");
  EXPECT_EQ(dump(*db, "SELECT count(component_id), (SELECT count(*) FROM edges) FROM files"),
            "0|0");
}

TEST(CoreSchemaTest, AnIdentifierWithUnderscoresIsOneWordAndOnlyTheTextIsSearched) {
  TempDatabase db;
  db->execute("INSERT INTO code_chunks VALUES ('void swap_index_from(4242)', 7, 9, 1)");
  const auto hits = [&](std::string_view text) {
    return db->fetchall("SELECT 1 FROM code_chunks WHERE code_chunks MATCH ?", {text}).size();
  };
  EXPECT_EQ(hits("swap_index_from") + hits("4242"), 2U);
  EXPECT_EQ(hits("index") + hits("9"), 0U) << "a part, or a line number, was indexed as a word";
}

TEST(CoreSchemaTest, AFileWithSomeTablesGetsTheOthersOnceAndKeepsItsVersion) {
  const TempDirectory directory;
  make_old_file(directory / "index.db", 3);
  Database db(directory / "index.db");
  db.connect();
  db.create_schema();
  EXPECT_EQ(dump(db, "SELECT value FROM schema_info WHERE key = 'version'"), "1");
  EXPECT_EQ(dump(db,
                 "SELECT count(*), (SELECT count(*) FROM pragma_table_info('symbols')) FROM"
                 " sqlite_master WHERE name IN ('code_chunks', 'files_delete_chunks',"
                 " 'symbols_by_name')"),
            "3|7");
  Connection other(db.db_path);
  other.execute("BEGIN IMMEDIATE");
  auto created = std::async(std::launch::async, [&] { db.create_schema(); });
  EXPECT_TRUE(finished(created, std::chrono::seconds(3))) << "it waited for another's write";
  other.execute("ROLLBACK");
}

}  // namespace
}  // namespace veldra
