#include "faults/operations.h"

#include <sqlite3.h>

#include <algorithm>

#include "faults/index_file.h"
#include "support/old_file.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using Path = std::filesystem::path;
using File = Operation::File;

std::string pragma(Database& db, const std::string& name) {
  return dump(db, "PRAGMA " + name);
}

constexpr std::string_view SYMBOLS = "SELECT * FROM symbols JOIN files ON files.id = file_id";

const std::vector<Operation> OPERATIONS = {
    {.name = "connect to a new file",
     .file = File::Missing,
     .run = &Database::connect,
     .on_open_database = false},
    {.name = "connect", .file = File::Index, .run = &Database::connect, .on_open_database = false},
    {.name = "create_schema", .file = File::Missing, .run = &Database::create_schema},
    {.name = "migrate_schema with page rewrite",
     .file = File::OldVersion,
     .run = [](Database& db) { db.create_schema(), db.migrate_schema(); },
     .done = [](Database& db) { return pragma(db, "page_size") == "8192"; }},
    {.name = "transaction",
     .file = File::Index,
     .run =
         [](Database& db) {
           db.transaction([](Cursor& cursor) {
             cursor.execute("UPDATE files SET hash = hash || '+'");
             cursor.execute("UPDATE code_chunks SET text = text || ' more'");
             cursor.execute("DELETE FROM files WHERE id = 3");
           });
         }},
    {.name = "execute",
     .file = File::Index,
     .run = [](Database& db) { db.execute("UPDATE symbols SET fqn = ifnull(fqn, '') || name"); }},
    {.name = "executemany",
     .file = File::Index,
     .run =
         [](Database& db) {
           db.executemany("INSERT OR REPLACE INTO kept VALUES (?, 'many', ?)",
                          {{2, "b"}, {3, "c"}, {4, "d"}});
         }},
    {.name = "fetchall",
     .file = File::Index,
     .run = [](Database& db) { db.fetchall(SYMBOLS); },
     .writes = false,
     .done = [](Database& db) { return db.fetchall(SYMBOLS).size() == 20; }},
    {.name = "index_generation",
     .file = File::Index,
     .run = [](Database& db) { db.index_generation(); },
     .writes = false,
     .done = [](Database& db) { return db.index_generation() == 0; }},
    {.name = "refresh_extractor_stamp",
     .file = File::Index,
     .run =
         [](Database& db) {
           db.refresh_extractor_stamp({{"C++", 2}, {"Go", 1}});
         }},
    {.name = "clear_all", .file = File::Index, .run = &Database::clear_all},
    {.name = "swap_index_from",
     .file = File::Index,
     .run = [](Database& db) { db.swap_index_from(db.db_path.parent_path() / "staging.db"); }},
    {.name = "get_stats",
     .file = File::Index,
     .run = [](Database& db) { db.get_stats(); },
     .writes = false,
     .done = [](Database& db) { return db.get_stats().at("files") == 10; }},
    {.name = "check_integrity",
     .file = File::Index,
     .run = [](Database& db) { db.check_integrity(); },
     .writes = false,
     .done = &Database::check_integrity},
    {.name = "record_error",
     .file = File::Index,
     .run = [](Database& db) { db.record_error("f1", PARTIAL_PARSE_ERROR, "line 3", 3); }},
    {.name = "compact with release",
     .file = File::FreePages,
     .run = [](Database& db) { db.compact(); },
     .done =
         [](Database& db) {
           return std::stoll(pragma(db, "freelist_count")) < COMPACT_MIN_FREE_PAGES;
         }},
    {.name = "compact with conversion",
     .file = File::FreePagesWithoutAutoVacuum,
     .run = [](Database& db) { db.compact(); },
     .done =
         [](Database& db) {
           db.compact();  // an object whose conversion failed does not try again; this one does
           return pragma(db, "auto_vacuum") == "2";
         }},
    {.name = "close",
     .file = File::Index,
     .run =
         [](Database& db) {
           if (!db.closed()) db.execute("UPDATE files SET size = 1");
           db.close();
         }},
};

}  // namespace

const std::vector<Operation>& operations() {
  return OPERATIONS;
}

std::vector<Operation> writing_operations() {
  std::vector<Operation> writing;
  std::ranges::copy_if(OPERATIONS, std::back_inserter(writing), &Operation::writes);
  return writing;
}

void make_file(File file, const Path& directory) {
  const Path index = index_in(directory);
  switch (file) {
    case File::Missing:
      return;
    case File::Index:
      make_index(directory / "staging.db", "new");
      return make_index(index, "old");
    case File::OldVersion:
      return make_old_file(index, 10);
    case File::FreePages:
      make_small_pages(index, "INCREMENTAL");
      break;
    case File::FreePagesWithoutAutoVacuum:
      make_small_pages(index, "NONE");
      break;
  }
  make_index(index, "old");
  leave_free_pages(index);
}

std::string name_of(const testing::TestParamInfo<Operation>& operation) {
  std::string name = operation.param.name;
  std::erase_if(name, [](unsigned char letter) { return std::isalnum(letter) == 0; });
  return name;
}

std::string outcome_of(const std::function<void()>& run) {
  try {
    run();
  } catch (const ProgrammingError& error) {
    ADD_FAILURE() << "blamed the caller: " << error.what();
  } catch (const Error& error) {
    return error.what();
  } catch (const OSError& error) {
    return error.what();
  } catch (const RuntimeError& error) {
    return error.what();
  } catch (const SchemaMigrationError& error) {
    return error.what();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "an error that is not documented: " << typeid(error).name() << ": "
                  << error.what();
  }
  return "";
}

void OperationTest::copy_files(const TempDirectory& to) const {
  std::filesystem::copy(_template.path(), to.path());
}

void OperationTest::note_states() {
  TempDirectory directory;
  copy_files(directory);
  struct Notes {
    Path index;
    std::set<std::string>& states;
    std::string note() { return *states.insert(look_at(index).content).first; }
  } notes{index_in(directory.path()), states};
  Database db(notes.index);
  notes.note();
  if (GetParam().on_open_database) {
    db.connect();
    notes.note();
    sqlite3_wal_hook(
        db.connection()->handle(),
        [](void* raw, sqlite3*, const char*, int) {
          static_cast<Notes*>(raw)->note();
          return SQLITE_OK;
        },
        &notes);
  }
  GetParam().run(db);
  end = notes.note();
  GetParam().run(db);
  ends = {end, notes.note()};
  db.close();
}

void OperationTest::expect_whole(const Path& index) const {
  const FileState state = look_at(index);
  EXPECT_EQ(state.damage, "");
  EXPECT_TRUE(states.contains(state.content)) << "half done:\n" << state.content;
}

void OperationTest::expect_works(Database& db) const {
  EXPECT_NO_THROW(GetParam().run(db)) << "does not work now that nothing fails";
  EXPECT_NO_THROW(db.close());
  EXPECT_TRUE(nothing_left_beside(db.db_path));
  const FileState state = look_at(db.db_path);
  EXPECT_EQ(state.damage, "");
  EXPECT_TRUE(ends.contains(state.content)) << "the next run gave\n" << state.content;
  if (!GetParam().done) return;
  Database again(db.db_path);
  again.connect();
  EXPECT_TRUE(GetParam().done(again)) << "not done";
  again.close();
}

void OperationTest::expect_works(const Path& index) const {
  Database db(index);
  if (GetParam().on_open_database) db.connect();
  expect_works(db);
}

}  // namespace veldra
