#include "faults/operations.h"

#include <sqlite3.h>

#include <algorithm>

#include "support/failing_new.h"
#include "support/old_file.h"
#include "support/pages.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using Path = std::filesystem::path;
using File = Operation::File;
using enum Operation::Kind;

constexpr std::string_view SYMBOLS = "SELECT * FROM symbols JOIN files ON files.id = file_id";

const std::vector<Operation> OPERATIONS = {
    {"connect to a new file", Connects, File::Missing, &Database::connect},
    {"connect", Connects, File::Index, &Database::connect},
    {"create_schema", Writes, File::Missing, &Database::create_schema},
    {"migrate_schema with page rewrite", Writes, File::OldVersion,
     [](Database& db) { db.create_schema(), db.migrate_schema(); },
     [](Database& db) { return dump(db, "PRAGMA page_size") == "8192"; }},
    {"transaction", Writes, File::Index,
     [](Database& db) {
       db.transaction([](Cursor& cursor) {
         cursor.execute("UPDATE files SET hash = hash || '+'");
         cursor.execute("UPDATE code_chunks SET text = text || ' more'");
         cursor.execute("DELETE FROM files WHERE id = 3");
       });
     }},
    {"execute", Writes, File::Index,
     [](Database& db) { db.execute("UPDATE symbols SET fqn = ifnull(fqn, '') || name"); }},
    {"executemany", Writes, File::Index,
     [](Database& db) {
       db.executemany("INSERT OR REPLACE INTO kept VALUES (?, 'many', ?)",
                      {{2, "b"}, {3, "c"}, {4, "d"}});
     }},
    {"fetchall", Reads, File::Index, [](Database& db) { db.fetchall(SYMBOLS); },
     [](Database& db) { return db.fetchall(SYMBOLS).size() == 20; }},
    {"snapshot with limits", Reads, File::Index,
     [](Database& db) {
       const Limits limits = {.timeout = std::chrono::hours(1), .stop = {}};
       db.snapshot(
           [](Snapshot& state) {
             const std::size_t rows = state.fetchall(SYMBOLS).size();
             std::size_t seen = 0;
             state.fetcheach(SYMBOLS, {}, [&](const Row&) { return ++seen > 0; });
             EXPECT_EQ(rows, seen) << "two states in one snapshot";
           },
           limits);
     },
     [](Database& db) { return db.activity().readers_lent == 0; }},
    {"index_generation", Reads, File::Index, [](Database& db) { db.index_generation(); },
     [](Database& db) { return db.index_generation() == 0; }},
    {"refresh_extractor_stamp", Writes, File::Index,
     [](Database& db) {
       db.refresh_extractor_stamp({{"C++", 2}, {"Go", 1}});
     }},
    {"clear_all", Writes, File::Index, &Database::clear_all},
    {"swap_index_from", Writes, File::Index,
     [](Database& db) { db.swap_index_from(db.db_path.parent_path() / "staging.db"); }},
    {"swap_index_from in a transaction", Writes, File::Index,
     [](Database& db) {
       const Path staging = db.db_path.parent_path() / "staging.db";
       db.transaction([&](Cursor&) { db.swap_index_from(staging, StagingTrust::Vouched); });
       db.execute("SELECT 1");  // detaches the staging file
     }},
    {"get_stats", Reads, File::Index, [](Database& db) { db.get_stats(); },
     [](Database& db) { return db.get_stats().at("files") == 10; }},
    {"check_integrity", Reads, File::Index, [](Database& db) { db.check_integrity(); },
     &Database::check_integrity},
    {"export_to", Reads, File::Index,
     [](Database& db) { db.export_to(db.db_path.parent_path() / "exported.db"); }},
    {"record_error", Writes, File::Index,
     [](Database& db) { db.record_error("f1", PARTIAL_PARSE_ERROR, "line 3", 3); }},
    {"compact with release", Writes, File::FreePages, [](Database& db) { db.compact(); },
     [](Database& db) {
       return std::stoll(dump(db, "PRAGMA freelist_count")) < COMPACT_MIN_FREE_PAGES;
     }},
    {"compact with conversion", Writes, File::FreePagesWithoutAutoVacuum,
     [](Database& db) { db.compact(); },
     [](Database& db) {
       db.compact();  // an object whose conversion failed does not try again; this one does
       return dump(db, "PRAGMA auto_vacuum") == "2";
     }},
    {"close", Closes, File::Index,
     [](Database& db) {
       if (!db.closed()) db.execute("UPDATE files SET size = 1");
       db.close();
     }},
};

}  // namespace

const std::vector<Operation>& operations() {
  return OPERATIONS;
}

std::vector<Operation> operations_that(bool (*are_wanted)(const Operation&)) {
  std::vector<Operation> wanted;
  std::ranges::copy_if(OPERATIONS, std::back_inserter(wanted), are_wanted);
  return wanted;
}

bool nothing_left_beside(const std::filesystem::path& path) {
  return !std::filesystem::exists(path.string() + "-wal") &&
         !std::filesystem::exists(path.string() + "-shm");
}

void make_file(File file, const Path& directory) {
  const Path index = index_in(directory);
  if (file == File::Missing) return;
  if (file == File::OldVersion) return make_old_file(index, 10);
  if (file == File::Index) make_index(directory / "staging.db", "new");
  if (file == File::FreePages) make_pages(index, "INCREMENTAL", 2600, 2500);
  if (file == File::FreePagesWithoutAutoVacuum) make_pages(index, "NONE", 2600, 2500);
  make_index(index, "old");
}

std::string name_of(const testing::TestParamInfo<Operation>& operation) {
  std::string name = operation.param.name;
  std::erase_if(name, [](unsigned char letter) { return std::isalnum(letter) == 0; });
  return name;
}

std::string outcome_of(const std::function<void()>& run) {
  try {
    run();
    return "";
  } catch (const std::exception& error) {
    const bool documented =
        (dynamic_cast<const Error*>(&error) != nullptr &&
         dynamic_cast<const ProgrammingError*>(&error) == nullptr) ||
        dynamic_cast<const OSError*>(&error) != nullptr ||
        (dynamic_cast<const std::bad_alloc*>(&error) != nullptr && FailingNew::met()) ||
        dynamic_cast<const RuntimeError*>(&error) != nullptr ||
        dynamic_cast<const SchemaMigrationError*>(&error) != nullptr;
    EXPECT_TRUE(documented) << typeid(error).name() << ": " << error.what();
    return error.what();
  }
}

void OperationTest::copy_files(const TempDirectory& to) const {
  std::filesystem::copy(_template.path(), to.path());
}

void OperationTest::prepare(Database& db) {
  if (GetParam().kind != Connects) db.connect();
}

void OperationTest::note_states() {
  TempDirectory directory;
  copy_files(directory);
  Database db(index_in(directory.path()));
  std::function<std::string()> note = [&] {
    return *states.insert(look_at(db.db_path).content).first;
  };
  start = note();
  prepare(db);
  if (GetParam().kind != Connects) {
    note();
    const auto noted = [](void* raw, sqlite3*, const char*, int) {
      (*static_cast<decltype(note)*>(raw))();
      return SQLITE_OK;
    };
    sqlite3_wal_hook(db.connection()->handle(), noted, &note);
  }
  GetParam().run(db);
  end = note();
  GetParam().run(db);
  ends = {end, note()};
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
  prepare(db);
  expect_works(db);
}

}  // namespace veldra
