// Files that are damaged, of another kind or made by a stranger: documented errors, no crash, no
// hang, no memory error.
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <random>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

/// Opens the file as a program does and runs every operation on it; how many ended in an error.
int run_everything(const std::filesystem::path& index) {
  Database db(index);
  int errors = outcome_of([&] { open(db); }).empty() ? 0 : 1;
  for (const Operation& operation : operations_that(share_an_index)) {
    SCOPED_TRACE(operation.name);
    errors += outcome_of([&] { operation.run(db); }).empty() ? 0 : 1;
  }
  outcome_of([&] { db.close(); });
  return errors;
}

using Damage = std::function<void(const TempDirectory& directory, std::mt19937& random)>;

/// Writes over some bytes of the file, between two places in it.
Damage flip(std::string_view name, int bytes, std::uintmax_t from = 0,
            std::uintmax_t to = std::numeric_limits<std::uintmax_t>::max()) {
  return [=](const TempDirectory& directory, std::mt19937& random) {
    const std::uintmax_t end = std::min(to, std::filesystem::file_size(directory / name));
    std::fstream file(directory / name, std::ios::in | std::ios::out | std::ios::binary);
    for (int i = 0; i < bytes; ++i) {
      file.seekp(static_cast<std::streamoff>(from + random() % (end - from)));
      file.put(static_cast<char>(random()));
    }
  };
}

/// In the log of a process that was killed.
void flip_in_log(const TempDirectory& directory, std::mt19937& random) {
  {
    Connection connection(directory / "index.db");
    sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    connection.execute("PRAGMA journal_mode=WAL").fetchall();
    connection.execute("UPDATE files SET size = 5, hash = 'in the log'");
  }
  flip("index.db-wal", 4)(directory, random);
}

/// By statements, after which each page is sound and what they say together is not.
Damage run(std::string_view name, std::vector<std::string> statements) {
  return [=](const TempDirectory& directory, std::mt19937& random) {
    Connection connection(directory / name);
    sqlite3_create_function(
        connection.handle(), "drawn", 1, SQLITE_UTF8, &random,
        [](sqlite3_context* context, int, sqlite3_value** below) {
          auto& draw = *static_cast<std::mt19937*>(sqlite3_user_data(context));
          const auto drawn = static_cast<sqlite3_int64>(draw());
          sqlite3_result_int64(context, drawn % sqlite3_value_int64(below[0]));
        },
        nullptr, nullptr);
    for (const std::string& statement : statements) connection.execute(statement).fetchall();
  };
}

const std::vector<std::string> GARBLE_FULL_TEXT = {
    "UPDATE code_chunks_data SET block = randomblob(drawn(90)) WHERE id % 3 = drawn(3)",
    "UPDATE code_chunks_docsize SET sz = randomblob(drawn(90))"};

TEST(HostileFilesTest, DamageGivesDocumentedErrors) {
  const std::pair<std::string, Damage> damages[] = {
      {"header", flip("index.db", 4, 0, 100)},
      {"first page", flip("index.db", 4, 100, 8192)},
      {"pages", flip("index.db", 40, 8192)},
      {"log", flip_in_log},
      {"full-text table", run("index.db", GARBLE_FULL_TEXT)},
      {"staging file", flip("staging.db", 40)},
      {"staging full text", run("staging.db", GARBLE_FULL_TEXT)},
      {"staging text", run("staging.db", {"UPDATE code_chunks_content SET c0 = 'x' || drawn(9)"})},
      {"staging index",
       run("staging.db", {"PRAGMA writable_schema = ON",
                          "UPDATE sqlite_master SET sql = replace(sql, '(name)', '(kind)')"})},
      {"staging constraint",
       run("staging.db", {"PRAGMA writable_schema = ON",
                          "UPDATE sqlite_master SET sql = replace(sql, 'NOT NULL', '')",
                          "PRAGMA writable_schema = RESET", "UPDATE symbols SET name = NULL",
                          "PRAGMA writable_schema = ON",
                          "UPDATE sqlite_master SET sql = replace(sql, 'name TEXT,', "
                          "'name TEXT NOT NULL,')"})}};
  const LogCapture quiet;
  TempDirectory whole;
  make_file(Operation::File::Index, whole.path());
  const long seed = asked_for("VELDRA_SEED", static_cast<long>(std::random_device()()));
  const long files = asked_for("VELDRA_FILES", 25);
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  std::mt19937 random(static_cast<unsigned>(seed));
  for (const auto& [name, inflict] : damages) {
    int errors = 0;
    for (long file = 0; file < files && !HasFailure(); ++file) {
      SCOPED_TRACE(name + ", file " + std::to_string(file));
      TempDirectory directory;
      std::filesystem::copy(whole.path(), directory.path());
      inflict(directory, random);
      errors += run_everything(directory / "index.db");
      EXPECT_TRUE(!name.starts_with("staging") || look_at(directory / "index.db").damage.empty());
    }
    measured("hostile files", name, files, std::to_string(errors));
  }
}

TEST(HostileFilesTest, AFileOfTheWrongKindIsRefusedAndChangesNothing) {
  const LogCapture quiet;
  TempDirectory directory;
  make_file(Operation::File::Index, directory.path());
  const std::string before = look_at(directory / "index.db").content;
  std::filesystem::create_directory(directory / "directory");
  ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
  std::ofstream(directory / "text") << std::string(20000, 'x');
  std::ofstream(directory / "short") << "SQLite format 3";
  Connection(directory / "other schema").execute("CREATE TABLE files (name TEXT)");
  std::filesystem::create_symlink("index.db", directory / "link to the index");
  Database db(directory / "index.db");
  db.connect();
  for (const char* name : {"directory", "pipe", "text", "short", "other schema", "index.db",
                           "link to the index", "missing"}) {
    SCOPED_TRACE(name);
    EXPECT_THROW(db.swap_index_from(directory / name), std::exception);
    EXPECT_EQ(look_at(directory / "index.db").content, before);
  }
  for (const char* name : {"directory", "pipe"}) {
    EXPECT_EQ(outcome_of([&] { db.swap_index_from(directory / name); }),
              "unable to open database: " + (directory / name).string());
  }
  EXPECT_NO_THROW(db.swap_index_from(directory / "staging.db"));
  db.close();
  EXPECT_THROW(db.swap_index_from(directory / "pipe"), RuntimeError);
  for (const char* name : {"directory", "pipe", "text", "short"}) {
    Database wrong(directory / name);
    EXPECT_NE(outcome_of([&] { open(wrong); }), "") << name << " was taken for an index";
  }
}

TEST(HostileFilesTest, TheSchemaRunsSqlitesFunctionsAndNoneMeantForDirectUse) {
  const LogCapture quiet;
  TempDirectory with_another_component;
  make_file(Operation::File::Index, with_another_component.path());
  Connection component(index_in(with_another_component.path()));
  for (const char* sql :
       {"CREATE TABLE pages (x CHECK (json_valid(x)), y AS (json_extract(x, '$.y')))",
        "CREATE INDEX by_z ON pages (json_extract(x, '$.z'))",
        "CREATE VIRTUAL TABLE words USING fts5(w)",
        "CREATE TRIGGER t AFTER UPDATE ON files BEGIN INSERT INTO words VALUES (new.path); END"})
    component.execute(sql);
  EXPECT_EQ(run_everything(index_in(with_another_component.path())), 0);

  for (const char* planted : {"CREATE VIEW v AS SELECT planted() AS value",
                              "CREATE TRIGGER t AFTER UPDATE ON files BEGIN SELECT planted(); END",
                              "CREATE TABLE d (value DEFAULT (planted()))"}) {
    SCOPED_TRACE(planted);
    TempDirectory directory;
    make_file(Operation::File::Index, directory.path());
    Database db(directory / "index.db");
    db.connect();
    int calls = 0;
    const auto count = [](sqlite3_context* context, int, sqlite3_value**) {
      ++*static_cast<int*>(sqlite3_user_data(context));
    };
    sqlite3_create_function(db.connection()->handle(), "planted", 0,
                            SQLITE_UTF8 | SQLITE_DIRECTONLY, &calls, count, nullptr, nullptr);
    for (const char* sql : {planted, "SELECT value FROM v", "UPDATE files SET size = 1",
                            "INSERT INTO d DEFAULT VALUES"})
      outcome_of([&] { db.execute(sql); });
    EXPECT_EQ(calls, 0) << "the schema ran the function";
  }
}

TEST(HostileFilesTest, ObjectsUnderTheLayersNamesGiveDocumentedErrors) {
  const LogCapture quiet;
  for (const char* planted :
       {"CREATE VIEW files AS SELECT 1 AS id", "CREATE TABLE schema_info (other)",
        "CREATE VIEW schema_info AS SELECT 'version' AS key, x'00' AS value",
        "CREATE TABLE code_chunks (text)", "CREATE VIEW code_chunks AS SELECT 1",
        "CREATE TABLE symbols (id)", "CREATE TABLE edges (a, b, c)"}) {
    SCOPED_TRACE(planted);
    TempDirectory directory;
    make_index(directory / "staging.db", "new");
    Connection(directory / "index.db").execute(planted);
    run_everything(directory / "index.db");
  }
}

}  // namespace
}  // namespace veldra
