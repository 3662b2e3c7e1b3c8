// Whatever call into the system fails: a documented error, nothing half done, nothing left behind.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <functional>
#include <future>
#include <map>
#include <set>
#include <string>

#include "faults/index_file.h"
#include "faults/measured.h"
#include "support/database_test_access.h"
#include "support/fault_vfs.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using Path = std::filesystem::path;

void make_nothing(const Path& /*directory*/) {}
void make_live(const Path& directory) {
  make_index(directory / "index.db", "old");
}
void make_live_and_staging(const Path& directory) {
  make_live(directory);
  make_index(directory / "staging.db", "new");
}
void make_old(const Path& directory) {
  make_old_file(directory / "index.db", 10);
}
void make_space(const Path& directory, std::string_view auto_vacuum) {
  make_small_pages(directory / "index.db", auto_vacuum);
  make_live(directory);
  leave_free_pages(directory / "index.db");
}

std::string pragma(Database& db, const std::string& name) {
  return dump(db, "PRAGMA " + name);
}

struct Operation {
  std::string name;
  std::function<void(const Path& directory)> make;
  std::function<void(Database& db)> run;
  bool on_open_database = true;
  std::function<bool(Database& db)> done = {};  // beside what the rows say

  friend std::ostream& operator<<(std::ostream& out, const Operation& it) { return out << it.name; }
};

const Operation OPERATIONS[] = {
    {"connect to a new file", make_nothing, &Database::connect, false},
    {"connect", make_live, &Database::connect, false},
    {"create_schema", make_nothing, &Database::create_schema},
    {"migrate_schema with page rewrite", make_old,
     [](Database& db) {
       db.create_schema();
       db.migrate_schema();
     },
     true, [](Database& db) { return pragma(db, "page_size") == "8192"; }},
    {"transaction", make_live,
     [](Database& db) {
       db.transaction([](Cursor& cursor) {
         cursor.execute("UPDATE files SET hash = hash || '+'");
         cursor.execute("UPDATE code_chunks SET text = text || ' more'");
         cursor.execute("DELETE FROM files WHERE id = 3");
       });
     }},
    {"execute", make_live,
     [](Database& db) { db.execute("UPDATE symbols SET fqn = ifnull(fqn, '') || name"); }},
    {"executemany", make_live,
     [](Database& db) {
       db.executemany("INSERT OR REPLACE INTO kept VALUES (?, 'many', ?)",
                      {{2, "b"}, {3, "c"}, {4, "d"}});
     }},
    {"fetchall", make_live,
     [](Database& db) {
       EXPECT_EQ(db.fetchall("SELECT * FROM symbols JOIN files ON files.id = file_id").size(), 20);
     }},
    {"index_generation", make_live, [](Database& db) { EXPECT_EQ(db.index_generation(), 0); }},
    {"refresh_extractor_stamp", make_live,
     [](Database& db) {
       db.refresh_extractor_stamp({{"C++", 2}, {"Go", 1}});
     }},
    {"clear_all", make_live, &Database::clear_all},
    {"swap_index_from", make_live_and_staging,
     [](Database& db) { db.swap_index_from(db.db_path.parent_path() / "staging.db"); }},
    {"get_stats", make_live, [](Database& db) { EXPECT_EQ(db.get_stats().at("files"), 10); }},
    {"check_integrity", make_live, [](Database& db) { db.check_integrity(); }, true,
     &Database::check_integrity},
    {"record_error", make_live,
     [](Database& db) { db.record_error("f1", PARTIAL_PARSE_ERROR, "line 3", 3); }},
    {"compact with release", [](const Path& directory) { make_space(directory, "INCREMENTAL"); },
     [](Database& db) { db.compact(); }, true,
     [](Database& db) {
       return std::stoll(pragma(db, "freelist_count")) < COMPACT_MIN_FREE_PAGES;
     }},
    {"compact with conversion", [](const Path& directory) { make_space(directory, "NONE"); },
     [](Database& db) { db.compact(); }, true,
     [](Database& db) {
       db.compact();  // an object whose conversion failed does not try again; this one does
       return pragma(db, "auto_vacuum") == "2";
     }},
    {"close", make_live,
     [](Database& db) {
       if (!db.closed()) db.execute("UPDATE files SET size = 1");
       db.close();
     }},
};

const std::pair<std::string, Fault> FAULTS[] = {
    {"open", {SystemCall::Open, SQLITE_CANTOPEN}},
    {"delete", {SystemCall::Delete, SQLITE_IOERR_DELETE}},
    {"read", {SystemCall::Read, SQLITE_IOERR_READ}},
    {"write", {SystemCall::Write, SQLITE_IOERR_WRITE}},
    {"full disk", {SystemCall::Write, SQLITE_FULL}},
    {"sync", {SystemCall::Sync, SQLITE_IOERR_FSYNC}},
    {"truncate", {SystemCall::Truncate, SQLITE_IOERR_TRUNCATE}},
    {"shared memory", {SystemCall::MapShared, SQLITE_IOERR_SHMMAP}},
    {"shared lock", {SystemCall::LockShared, SQLITE_IOERR_SHMLOCK}},
    {"memory", {SystemCall::Memory}},
};

/// What a run came to: the text of a documented error, or "". Anything else fails the test.
std::string outcome_of(const std::function<void()>& run) {
  try {
    run();
  } catch (const ProgrammingError& error) {
    ADD_FAILURE() << "blamed the caller: " << error.what();
  } catch (const Error& error) {
    return error.what();
  } catch (const OSError& error) {
    return error.what();
  } catch (const SchemaMigrationError& error) {
    return error.what();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "an error that is not documented: " << typeid(error).name() << ": "
                  << error.what();
  }
  return "";
}

void expect_at_rest(Database& db, bool still_failing) {
  const auto taken = std::async(std::launch::async, [&] {
                       FairMutex& lock = DatabaseTestAccess::lock(db);
                       const bool free = lock.try_lock();
                       if (free) lock.unlock();
                       return free;
                     }).get();
  EXPECT_TRUE(taken) << "the lock stayed held";
  EXPECT_EQ(DatabaseTestAccess::tx_depth(db), 0);
  EXPECT_EQ(DatabaseTestAccess::tx_owner(db), std::thread::id());
  std::shared_ptr<Connection> writer;
  try {
    writer = db.connection();
  } catch (const RuntimeError&) {
    return;  // not open
  }
  if (still_failing) {
    // The end of the operation failed as well; the next statement and the next swap make up for it.
    writer->execute("SELECT 1");
  } else {
    EXPECT_EQ(sqlite3_db_filename(writer->handle(), "stg"), nullptr) << "stg stayed attached";
  }
  EXPECT_NE(sqlite3_get_autocommit(writer->handle()), 0) << "a transaction stayed open";
  sqlite3_stmt* statement = nullptr;
  while ((statement = sqlite3_next_stmt(writer->handle(), statement)) != nullptr)
    EXPECT_EQ(sqlite3_stmt_busy(statement), 0) << "left running: " << sqlite3_sql(statement);
}

class EveryCallTest : public testing::TestWithParam<Operation> {
 protected:
  EveryCallTest() { GetParam().make(_template.path()); }

  static Path index_in(const TempDirectory& directory) { return directory / "index.db"; }

  void copy_template(const TempDirectory& to) const {
    std::filesystem::copy(_template.path(), to.path());
  }

  /// Lets the operation run twice without a fault and notes every state that another program could
  /// see on the way.
  void note_states() {
    TempDirectory directory;
    copy_template(directory);
    const Path index = index_in(directory);
    if (std::filesystem::exists(index)) _seen.insert(look_at(index).content);
    Database db(index);
    if (GetParam().on_open_database) db.connect();
    _seen.insert(look_at(index).content);
    struct Hook {
      Path index;
      std::set<std::string>& seen;
    } hook{index, _seen};
    for (int run = 0; run < 2; ++run) {
      if (run == 0 && GetParam().on_open_database) {
        sqlite3_wal_hook(
            db.connection()->handle(),
            [](void* raw, sqlite3*, const char*, int) {
              auto& it = *static_cast<Hook*>(raw);
              it.seen.insert(look_at(it.index).content);
              return SQLITE_OK;
            },
            &hook);
      }
      GetParam().run(db);
      _ends.insert(look_at(index).content);
    }
    _seen.insert(_ends.begin(), _ends.end());
    db.close();
  }

  /// Fails the n-th call; false when the operation made fewer.
  bool fail(int n, const Fault& fault) {
    TempDirectory directory;
    copy_template(directory);
    const Path index = index_in(directory);
    const Operation& operation = GetParam();
    Database db(index);
    if (operation.on_open_database) db.connect();

    _vfs.fail_nth(n, fault);
    const std::string error = outcome_of([&] { operation.run(db); });
    _vfs.heal();
    if (_vfs.injected().empty()) {
      db.close();
      return false;
    }
    _errors += error.empty() ? 0 : 1;
    SCOPED_TRACE("n " + std::to_string(n) + ": " + _vfs.injected().front() + " gave '" + error +
                 "'");

    expect_at_rest(db, fault.lasting);
    const FileState after = look_at(index);
    EXPECT_EQ(after.damage, "");
    EXPECT_TRUE(_seen.contains(after.content)) << "half done:\n" << after.content;

    EXPECT_NO_THROW(operation.run(db)) << "did not work again once nothing failed";
    expect_at_rest(db, false);
    EXPECT_NO_THROW(db.close());
    EXPECT_EQ(_vfs.open_files(), 0) << "a connection stayed open";
    EXPECT_TRUE(nothing_left_beside(index));
    const FileState end = look_at(index);
    EXPECT_EQ(end.damage, "");
    EXPECT_TRUE(_ends.contains(end.content)) << "the second run gave\n" << end.content;
    if (operation.done) {
      Database again(index);
      again.connect();
      EXPECT_TRUE(operation.done(again)) << "not done";
      again.close();
    }
    return true;
  }

  TempDirectory _template;
  LogCapture _log;
  FaultVfs _vfs;
  std::set<std::string> _seen;
  std::set<std::string> _ends;
  int _errors = 0;
};

TEST_P(EveryCallTest, FailsCleanly) {
  note_states();
  const bool every_point = asked_for("VELDRA_EVERY_POINT", 0) != 0;
  for (auto [name, fault] : FAULTS) {
    int points = 0;
    _errors = 0;
    for (const bool lasting : {false, true}) {
      fault.lasting = lasting;
      SCOPED_TRACE(name + (lasting ? ", from then on" : ", once"));
      for (int n = 1; fail(n, fault); n += every_point ? 1 : 1 + n / 4) {
        ++points;
        if (HasFailure()) break;
      }
    }
    measured("every call", GetParam().name + "|" + name,
             std::to_string(points) + "|" + std::to_string(_errors) + "|" +
                 std::to_string(HasFailure() ? 1 : 0));
  }
}

std::string name_of(const testing::TestParamInfo<Operation>& operation) {
  std::string name = operation.param.name;
  std::erase_if(name, [](unsigned char letter) { return std::isalnum(letter) == 0; });
  return name;
}

INSTANTIATE_TEST_SUITE_P(Operations, EveryCallTest, testing::ValuesIn(OPERATIONS), name_of);

}  // namespace
}  // namespace veldra
