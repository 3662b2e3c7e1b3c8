// Every file ends with every table, whoever opens it beside; the tables keep their rules.
#include "veldra/storage/core_schema.h"

#include "support/database_test.h"
#include "support/old_file.h"

namespace veldra {
namespace {

TEST(CoreSchemaTest, ManyWhoOpenAFileAtOnceAllEndWithACompleteOne) {
  const LogCapture quiet;
  for (const int old_files : {0, 2000}) {
    const TempDirectory directory;
    const std::filesystem::path path = directory / "index.db";
    if (old_files != 0) make_old_file(path, old_files);
    std::vector<std::future<void>> opened;
    for (int i = 0; i < 6; ++i)
      opened.push_back(std::async(std::launch::async, [&] {
        Database db(path);
        open(db);
        EXPECT_EQ(
            dump(db,
                 "SELECT m.name || count(*) FROM sqlite_master AS m, pragma_table_info(m.name)"
                 " WHERE m.type = 'table' AND m.name NOT LIKE 'code_chunks_%' GROUP BY m.name"),
            "code_chunks4\ncomponents3\nedges5\nexternal_imports4\nfiles6\nindex_errors5\n"
            "schema_info2\nsymbols8");
        EXPECT_EQ(dump(db, "SELECT value FROM schema_info WHERE key = 'version'"), "3");
      }));
    for (std::future<void>& one : opened) EXPECT_NO_THROW(one.get());
    EXPECT_EQ(as_another_process(path, "SELECT count(*) FROM files WHERE hash = 'stale'"),
              std::to_string(old_files));
  }
}

TEST(CoreSchemaTest, WhatIsThereIsKnownByItsTypeAndItsNameInAnyCase) {
  TempDatabase db;
  for (const char* const sql :
       {"DROP INDEX symbols_by_name", "CREATE INDEX Symbols_By_Name ON symbols (name)",
        "DROP INDEX edges_by_source",
        "CREATE TRIGGER edges_by_source DELETE ON edges BEGIN SELECT 1; END"})
    db->execute(sql);
  db->create_schema();
  EXPECT_EQ(dump(*db,
                 "SELECT type, name FROM sqlite_master"
                 " WHERE lower(name) IN ('symbols_by_name', 'edges_by_source') ORDER BY 1, 2"),
            "index|Symbols_By_Name\nindex|edges_by_source\ntrigger|edges_by_source");
}

TEST(CoreSchemaTest, DeletingAFileTakesWhatBelongsToItAndNothingElse) {
  TempDatabase db;
  constexpr std::int64_t BIG = std::int64_t{1} << 33;
  db->execute("INSERT INTO components (id, name, path) VALUES (1, 'core', 'src')");
  for (const std::int64_t id : {BIG >> 33, BIG >> 32, BIG}) {
    db->execute("INSERT INTO files VALUES (?, 'p' || ?, 'C', 'h', NULL, 1)", {id, id});
    db->execute("INSERT INTO symbols (id, file_id, name, kind) VALUES (?, ?, 'f', '')", {id, id});
    db->execute("INSERT INTO external_imports (file_id, module) VALUES (?, 'os')", {id});
    for (const std::int64_t ordinal : {std::int64_t{0}, CHUNKS_PER_FILE - 1})
      db->execute("INSERT INTO code_chunks (rowid, text) VALUES (?, 'x')",
                  {id * CHUNKS_PER_FILE + ordinal});
  }
  db->execute("INSERT INTO edges (source_id, target_id, kind) VALUES (1, 2, ''), (2, ?, '')",
              {BIG});
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

}  // namespace
}  // namespace veldra
