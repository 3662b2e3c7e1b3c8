// Files that are damaged, of another kind or made by a stranger: documented errors, no crash, no
// hang, no memory error.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <random>

#include "faults/index_file.h"
#include "faults/measured.h"
#include "faults/operations.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using Path = std::filesystem::path;

/// Opens the file as a program does and runs every operation on it; how many ended in an error.
int run_everything(const Path& index) {
  Database db(index);
  int errors = outcome_of([&] { open(db); }).empty() ? 0 : 1;
  for (const Operation& operation : operations()) {
    if (operation.file != Operation::File::Index || !operation.on_open_database) continue;
    SCOPED_TRACE(operation.name);
    errors += outcome_of([&] { operation.run(db); }).empty() ? 0 : 1;
  }
  outcome_of([&] { db.close(); });
  return errors;
}

void flip_bytes(const Path& path, std::size_t from, std::size_t to, std::mt19937& random) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  for (int i = 0; i < 4; ++i) {
    file.seekp(static_cast<std::streamoff>(from + random() % (to - from)));
    file.put(static_cast<char>(random()));
  }
}

/// Leaves a log with commits beside the file, as a killed process does.
void leave_log(const TempDirectory& directory) {
  const Path index = index_in(directory.path());
  TempDirectory aside;
  Connection connection(index);
  connection.execute("PRAGMA journal_mode=WAL").fetchall();
  connection.execute("UPDATE files SET size = 5, hash = 'in the log'");
  for (const char* name : {"index.db", "index.db-wal"})
    std::filesystem::copy_file(directory / name, aside / name);
  connection.close();
  std::filesystem::copy(
      aside.path(), directory.path(),
      std::filesystem::copy_options::overwrite_existing | std::filesystem::copy_options::recursive);
}

struct Damage {
  std::string name;
  std::function<void(const TempDirectory& directory, std::mt19937& random)> inflict;
};

const Damage DAMAGES[] = {
    {"header", [](const TempDirectory& directory,
                  std::mt19937& random) { flip_bytes(directory / "index.db", 0, 100, random); }},
    {"first page",
     [](const TempDirectory& directory, std::mt19937& random) {
       flip_bytes(directory / "index.db", 100, 8192, random);
     }},
    {"pages",
     [](const TempDirectory& directory, std::mt19937& random) {
       for (int i = 0; i < 10; ++i)
         flip_bytes(directory / "index.db", 8192,
                    std::filesystem::file_size(directory / "index.db"), random);
     }},
    {"log",
     [](const TempDirectory& directory, std::mt19937& random) {
       leave_log(directory);
       flip_bytes(directory / "index.db-wal", 0,
                  std::filesystem::file_size(directory / "index.db-wal"), random);
     }},
    {"full-text table",
     [](const TempDirectory& directory, std::mt19937& random) {
       Connection connection(directory / "index.db");
       const std::int64_t size = static_cast<std::int64_t>(random() % 90);
       connection.execute("UPDATE code_chunks_data SET block = randomblob(?) WHERE id % 3 = ?",
                          {size, static_cast<std::int64_t>(random() % 3)});
       connection.execute("UPDATE code_chunks_docsize SET sz = randomblob(?)", {size});
     }},
    {"staging file",
     [](const TempDirectory& directory, std::mt19937& random) {
       for (int i = 0; i < 10; ++i)
         flip_bytes(directory / "staging.db", 0,
                    std::filesystem::file_size(directory / "staging.db"), random);
     }},
};

TEST(HostileFilesTest, FlippedBytesGiveDocumentedErrors) {
  const LogCapture quiet;
  TempDirectory whole;
  make_file(Operation::File::Index, whole.path());
  const long seed = asked_for("VELDRA_SEED", static_cast<long>(std::random_device()()));
  const long files = asked_for("VELDRA_FILES", 25);
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  std::mt19937 random(static_cast<unsigned>(seed));
  for (const Damage& damage : DAMAGES) {
    int errors = 0;
    for (long file = 0; file < files && !HasFailure(); ++file) {
      SCOPED_TRACE(damage.name + ", file " + std::to_string(file));
      TempDirectory directory;
      std::filesystem::copy(whole.path(), directory.path());
      damage.inflict(directory, random);
      errors += run_everything(directory / "index.db");
    }
    measured("hostile files", damage.name,
             std::to_string(files) + "|" + std::to_string(errors) + "|" +
                 std::to_string(HasFailure() ? 1 : 0));
  }
}

TEST(HostileFilesTest, AFileOfTheWrongKindIsRefused) {
  TempDirectory directory;
  std::filesystem::create_directory(directory / "directory");
  ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
  std::ofstream(directory / "text") << std::string(20000, 'x');
  std::ofstream(directory / "short") << "SQLite format 3";
  for (const char* name : {"directory", "pipe", "text", "short"}) {
    SCOPED_TRACE(name);
    Database db(directory / name);
    EXPECT_NE(outcome_of([&] { open(db); }), "") << "was taken for an index";
    EXPECT_NO_THROW(db.close());
  }
}

TEST(HostileFilesTest, AStagingFileThatCannotServeChangesNothing) {
  TempDirectory directory;
  make_file(Operation::File::Index, directory.path());
  const Path index = directory / "index.db";
  const std::string before = look_at(index).content;
  std::filesystem::create_directory(directory / "directory");
  ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
  std::ofstream(directory / "text") << std::string(20000, 'x');
  Connection(directory / "other schema").execute("CREATE TABLE files (name TEXT)");
  std::filesystem::create_symlink("index.db", directory / "link to the index");
  Database db(index);
  db.connect();
  for (const char* name :
       {"directory", "pipe", "text", "other schema", "index.db", "link to the index", "missing"}) {
    SCOPED_TRACE(name);
    EXPECT_THROW(db.swap_index_from(directory / name), std::exception);
    EXPECT_EQ(look_at(index).content, before);
  }
  EXPECT_NO_THROW(db.swap_index_from(directory / "staging.db"));
  db.close();
}

TEST(HostileFilesTest, WhatAStrangerPutIntoTheSchemaRunsNoUntrustedFunction) {
  for (const char* planted : {"CREATE VIEW v AS SELECT planted() AS value",
                              "CREATE TRIGGER t AFTER UPDATE ON files BEGIN SELECT planted(); END",
                              "CREATE TABLE d (value DEFAULT (planted()))"}) {
    SCOPED_TRACE(planted);
    TempDirectory directory;
    make_file(Operation::File::Index, directory.path());
    Database db(directory / "index.db");
    db.connect();
    int calls = 0;
    sqlite3_create_function(
        db.connection()->handle(), "planted", 0, SQLITE_UTF8, &calls,
        [](sqlite3_context* context, int, sqlite3_value**) {
          ++*static_cast<int*>(sqlite3_user_data(context));
        },
        nullptr, nullptr);
    outcome_of([&] { db.execute(planted); });
    outcome_of([&] { db.execute("SELECT value FROM v"); });
    outcome_of([&] { db.execute("UPDATE files SET size = 1"); });
    outcome_of([&] { db.execute("INSERT INTO d DEFAULT VALUES"); });
    EXPECT_EQ(calls, 0) << "the schema ran the function";
    EXPECT_NO_THROW(db.close());
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
