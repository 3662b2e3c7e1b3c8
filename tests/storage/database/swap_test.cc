// A swap leaves what the plain statements leave, however it copies, and refuses what they refuse.
#include <fstream>

#include "support/database_test.h"
#include "support/old_file.h"
#include "support/whole_index.h"

namespace veldra {
namespace {

using Path = std::filesystem::path;
using Statements = std::vector<std::string>;

/// Declares a table of a staging file in another way, with the same rows.
Statements redeclare(const std::string& table, const std::string& columns, const std::string& as) {
  return {"CREATE TABLE was AS SELECT * FROM " + table, "DROP TABLE " + table,
          "CREATE TABLE " + table + " (" + as + ")",
          "INSERT INTO " + table + " (" + columns + ") SELECT " + columns + " FROM was",
          "DROP TABLE was"};
}

Statements both(Statements first, const Statements& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

const std::string EDGE = "id, source_id, target_id, kind, line";
const std::string PLAIN_EDGE =
    "id INTEGER PRIMARY KEY, source_id INTEGER NOT NULL, target_id "
    "INTEGER NOT NULL, kind TEXT NOT NULL, line INTEGER";
const std::string FILE_COLUMNS = "id, path, language, hash, size, component_id";
const Statements NOTES_BY_TRIGGER = {"CREATE TABLE owners (id INTEGER PRIMARY KEY)",
                                     "CREATE TABLE notes (owner INTEGER REFERENCES owners)"};
constexpr const char* BROKEN = "FOREIGN KEY constraint failed";

/// What differs between the two files, and the error that it ends in.
struct Case {
  std::string what;
  Statements live = {};
  Statements staging = {};
  std::string error = {};
  bool old_live = false, old_staging = false;  // made by the first release and migrated
};

const std::vector<Case> CASES = {
    {.what = "nothing"},
    {.what = "indexes that the staging file lacks",
     .staging = {"DROP INDEX symbols_by_name", "DROP INDEX edges_by_source"}},
    {.what = "indexes of the host's, with statistics",
     .live = {"CREATE INDEX \"it's `one`\" ON symbols (upper(name), fqn) WHERE kind <> 'x'",
              "CREATE UNIQUE INDEX once ON edges (kind, id)", "ANALYZE"}},
    {.what = "a unique index that the rows break",
     .live = {"CREATE UNIQUE INDEX once ON files (language, component_id, size)"},
     .staging = {"UPDATE files SET size = 1"},
     .error = "UNIQUE constraint failed: files.language, files.component_id, files.size"},
    {.what = "columns more", .staging = {"ALTER TABLE edges ADD COLUMN more DEFAULT 'x'"}},
    {.what = "columns named like words",
     .live = {"ALTER TABLE edges ADD COLUMN `order`", "ALTER TABLE edges ADD COLUMN `my ``col`"},
     .staging = {"ALTER TABLE edges ADD COLUMN `my ``col` DEFAULT 'x'",
                 "ALTER TABLE edges ADD COLUMN `order` DEFAULT 'y'"}},
    {.what = "a column less",
     .live = {"ALTER TABLE files ADD COLUMN note"},
     .error = "no such column: note"},
    {.what = "another order",
     .staging = redeclare("edges", EDGE,
                          "kind TEXT NOT NULL, line INTEGER, id INTEGER PRIMARY KEY,"
                          " target_id INTEGER, source_id INTEGER")},
    {.what = "other types",
     .staging = redeclare("edges", EDGE,
                          "id INTEGER PRIMARY KEY, source_id TEXT, target_id, "
                          "kind BLOB, line REAL")},
    {.what = "a generated column",
     .live = {"ALTER TABLE edges ADD COLUMN twice AS (2 * line)"},
     .staging = {"ALTER TABLE edges ADD COLUMN twice AS (3 * line)"}},
    {.what = "an older staging file, migrated", .old_staging = true},
    {.what = "an older live file, migrated", .old_live = true},
    {.what = "another page size",
     .staging = {"PRAGMA journal_mode = DELETE", "PRAGMA page_size = 1024", "VACUUM"}},
    {.what = "no full text in the staging file", .staging = {"DROP TABLE code_chunks"}},
    {.what = "no full text in the live file",
     .live = {"DROP TRIGGER files_delete_chunks", "DROP TABLE code_chunks"}},
    {.what = "a plain table for the full text",
     .staging = {"DROP TABLE code_chunks",
                 "CREATE TABLE code_chunks (text, start_line, end_line, exact)",
                 "INSERT INTO code_chunks VALUES ('new int plain', 1, 2, 1)"}},
    {.what = "a full text of another declaration",
     .staging = {"DROP TABLE code_chunks",
                 "CREATE VIRTUAL TABLE code_chunks USING fts5(text, start_line, end_line, exact)",
                 "INSERT INTO code_chunks VALUES ('new int other', 1, 2, 1)"}},
    {.what = "a component that is not there",
     .staging = {"UPDATE files SET component_id = 7 WHERE id = 9"},
     .error = BROKEN},
    {.what = "a symbol's file that is not there",
     .staging = {"UPDATE symbols SET file_id = 0 WHERE id = 9"},
     .error = BROKEN},
    {.what = "an import's file that is not there",
     .staging = {"UPDATE external_imports SET file_id = -1 WHERE id = 9"},
     .error = BROKEN},
    {.what = "an edge from half a symbol",
     .staging = {"UPDATE edges SET source_id = 2.5 WHERE id = 9"},
     .error = BROKEN},
    {.what = "an edge to a text",
     .staging = {"UPDATE edges SET target_id = 'x' WHERE id = 9"},
     .error = BROKEN},
    {.what = "a broken key in another order",
     .staging = both(redeclare("edges", EDGE, "kind, line, id, target_id, source_id"),
                     {"UPDATE edges SET target_id = 999 WHERE id = 9"}),
     .error = BROKEN},
    {.what = "broken keys where the host does not enforce them",
     .live = {"PRAGMA foreign_keys = OFF"},
     .staging = {"UPDATE edges SET target_id = 999"}},
    {.what = "keys that are null, and no component at all",
     .staging = {"UPDATE files SET component_id = NULL", "DELETE FROM components",
                 "UPDATE external_imports SET file_id = NULL"}},
    {.what = "a row twice",
     .staging =
         both(redeclare("files", FILE_COLUMNS, FILE_COLUMNS), {"UPDATE files SET path = 'twice'"}),
     .error = "UNIQUE constraint failed: files.path"},
    {.what = "a null where none may be",
     .staging = both(redeclare("edges", EDGE, EDGE), {"UPDATE edges SET kind = NULL"}),
     .error = "NOT NULL constraint failed: edges.kind"},
    {.what = "a check that the staging file lacks",
     .live = both({"PRAGMA foreign_keys = OFF"},
                  redeclare("edges", EDGE, PLAIN_EDGE + ", CHECK (kind <> 'new')")),
     .error = "CHECK constraint failed: kind <> 'new'"},
    {.what = "a stranger's table with cascading keys",
     .live = {"CREATE TABLE notes (symbol INTEGER REFERENCES symbols ON DELETE CASCADE,"
              " file INTEGER REFERENCES files ON DELETE SET NULL)",
              "INSERT INTO notes VALUES (NULL, 3), (4, 4)"}},
    {.what = "a stranger's key on an index table",
     .live = {"CREATE TABLE owners (id INTEGER PRIMARY KEY)",
              "ALTER TABLE files ADD COLUMN owner REFERENCES owners"},
     .staging = {"ALTER TABLE files ADD COLUMN owner", "UPDATE files SET owner = 1"},
     .error = BROKEN},
    {.what = "a stranger's trigger, whose rows have keys of their own",
     .live = both(NOTES_BY_TRIGGER, {"CREATE TRIGGER t AFTER INSERT ON edges BEGIN"
                                     " INSERT INTO notes VALUES (new.id); END"}),
     .error = BROKEN},
    {.what = "a stranger's trigger of this connection alone",
     .live = both(NOTES_BY_TRIGGER, {"CREATE TEMP TRIGGER t AFTER INSERT ON main.files BEGIN"
                                     " INSERT INTO notes VALUES (new.id); END"}),
     .error = BROKEN},
};

class SwapTest : public ::testing::TestWithParam<Case> {
 protected:
  /// The files of the case in `directory`; what it changes in the live file is left to the caller,
  /// since some of it belongs to the connection.
  static void make_files(const Path& directory) {
    const auto make = [&](bool old, const Path& path, std::string_view mark) {
      if (!old) return make_index(path, mark);
      make_old_file(path, 10);
      Database db(path);
      open(db);
      db.close();
    };
    make(GetParam().old_live, directory / "index.db", "old");
    make(GetParam().old_staging, directory / "staging.db", "new");
    Connection staging(directory / "staging.db");
    for (const std::string& change : GetParam().staging) staging.execute(change).fetchall();
  }

  /// None runs the plain statements: inside a transaction nothing else is done.
  static std::string swap(Database& db, std::optional<StagingTrust> trust) {
    const Path staging = db.db_path.parent_path() / "staging.db";
    try {
      if (trust)
        db.swap_index_from(staging, *trust);
      else
        db.transaction([&](Cursor&) { db.swap_index_from(staging); });
      return "";
    } catch (const Error& error) {
      return error.what();
    }
  }

  /// All that can be seen of two swaps with every kind of write in between.
  static std::string outcome(std::optional<StagingTrust> trust) {
    TempDirectory directory;
    make_files(directory.path());
    Database db(directory / "index.db");
    db.connect();
    for (const std::string& change : GetParam().live) db.execute(change).fetchall();
    const std::string before = look_at(db.db_path).content;
    const std::string error = swap(db, trust);
    EXPECT_EQ(error, GetParam().error);
    EXPECT_TRUE(error.empty() || look_at(db.db_path).content == before) << "failed by half";
    std::string seen;
    // At once: another connection's commit would make the writer read its full-text index again.
    for (const std::string sql :
         {"SELECT group_concat(name) FROM pragma_database_list", "PRAGMA foreign_keys",
          "INSERT INTO code_chunks VALUES ('int added', 1, 2, 1)", "DELETE FROM files WHERE id = 3",
          "UPDATE code_chunks SET text = text || ' more' WHERE rowid < 5000000",
          "SELECT rowid FROM code_chunks WHERE code_chunks MATCH 'more OR added' ORDER BY rowid",
          "INSERT INTO code_chunks (code_chunks) VALUES ('integrity-check')",
          "INSERT INTO code_chunks (code_chunks) VALUES ('optimize')",
          "INSERT INTO code_chunks (code_chunks) VALUES ('integrity-check')"}) {
      try {
        seen += dump(*db.connection(), sql) + "\n";
        if (sql.starts_with("SELECT rowid")) seen += dump(db, sql) + "\n";
      } catch (const Error& failed) {
        seen.append(failed.what()).append("\n");
      }
    }
    for (const bool again : {false, true}) {
      if (again) seen += swap(db, trust);
      const FileState state = look_at(db.db_path);
      seen += state.content + state.damage + "\n";
    }
    db.close();
    return seen;
  }

  LogCapture quiet;
};

TEST_P(SwapTest, ByTreesIsTheSameAsByRows) {
  const std::string rows = outcome(std::nullopt);
  EXPECT_EQ(outcome(StagingTrust::Checked), rows);
  EXPECT_EQ(outcome(StagingTrust::Vouched), rows);
}

INSTANTIATE_TEST_SUITE_P(Cases, SwapTest, testing::ValuesIn(CASES), [](const auto& tested) {
  std::string name = tested.param.what;
  std::erase_if(name, [](unsigned char letter) { return std::isalnum(letter) == 0; });
  return name;
});

}  // namespace
}  // namespace veldra
