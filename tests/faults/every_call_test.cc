// Whatever call into the system fails, and wherever the room on the disk ends: a documented error,
// nothing half done, nothing left behind.
#include <sqlite3.h>

#include <future>
#include <mutex>
#include <string>
#include <utility>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/database_test_access.h"
#include "support/failing_new.h"
#include "support/fault_vfs.h"

namespace veldra {
namespace {

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
    {"memory", {SystemCall::Memory, SQLITE_NOMEM}},
};

void expect_at_rest(Database& db) {
  std::async(std::launch::async, [&] {
    const std::unique_lock lock(DatabaseTestAccess::lock(db), std::try_to_lock);
    EXPECT_TRUE(lock.owns_lock()) << "the lock stayed held";
  }).get();
  EXPECT_EQ(DatabaseTestAccess::tx_depth(db), 0);
  std::shared_ptr<Connection> writer;
  try {
    writer = db.connection();
  } catch (const RuntimeError&) {
    return;  // not open
  }
  // Where the end of the operation failed as well, the next statement makes up for it.
  writer->execute("SELECT 1");
  EXPECT_EQ(sqlite3_db_filename(writer->handle(), "stg"), nullptr) << "stg stayed attached";
  EXPECT_NE(sqlite3_get_autocommit(writer->handle()), 0) << "a transaction stayed open";
  sqlite3_stmt* statement = nullptr;
  while ((statement = sqlite3_next_stmt(writer->handle(), statement)) != nullptr)
    EXPECT_EQ(sqlite3_stmt_busy(statement), 0) << "left running: " << sqlite3_sql(statement);
  EXPECT_EQ(db.fetchone("SELECT 1")->size(), 1U);
  for (const char* const writes_nothing : {"BEGIN IMMEDIATE", "COMMIT"})
    EXPECT_NO_THROW(db.execute(writes_nothing));
}

/// One commit: an error says that nothing has changed.
bool is_all_or_nothing(const Operation& it) {
  static const std::set<std::string> OPERATIONS = {
      "create_schema",   "transaction",  "execute",  "refresh_extractor_stamp",
      "swap_index_from", "record_error", "clear_all"};
  return OPERATIONS.contains(it.name);
}

class EveryCallTest : public OperationTest {
 protected:
  /// Runs the operation with faults from where it begins, among them those of operator new's n-th
  /// call or of all from it on; false when it met none.
  bool meets_faults(const std::function<void()>& begin_faults, int failing_new = 0,
                    bool lasting = false) {
    TempDirectory directory;
    copy_files(directory);
    Database db(index_in(directory.path()));
    prepare(db);
    begin_faults();
    error = outcome_of([&] {
      const FailingNew allocations(failing_new, lasting);
      GetParam().run(db);
    });
    vfs.heal();
    const std::string met = FailingNew::met() ? "operator new" : vfs.injected();
    if (met.empty()) return false;
    SCOPED_TRACE(met + " gave '" + error + "'");
    expect_at_rest(db);
    expect_whole(db.db_path);
    const bool must_have_failed =
        FailingNew::met() && !error.empty() && is_all_or_nothing(GetParam());
    EXPECT_TRUE(!must_have_failed || look_at(db.db_path).content == start)
        << "an error, though it was done";
    expect_works(db);
    EXPECT_EQ(vfs.open_files(), 0) << "a connection stayed open";
    errors += error.empty() ? 0 : 1;
    ++points;
    return !HasFailure();
  }

  FaultVfs vfs;
  std::string error;  // of the last run
  int points = 0;
  int errors = 0;
};

TEST_P(EveryCallTest, FailsCleanly) {
  note_states();
  const bool every_point = asked_for("VELDRA_EVERY_POINT", 0) != 0;
  for (auto [name, fault] : FAULTS) {
    points = errors = 0;
    for (const bool lasting : {false, true}) {
      fault.lasting = lasting;
      for (int n = 1;; n += every_point ? 1 : 1 + n / 4) {
        SCOPED_TRACE(name + " " + std::to_string(n) + (lasting ? " and all after it" : ""));
        if (!meets_faults([&, which = fault] { vfs.fail_nth(n, which); })) break;
      }
    }
    measured("every call", GetParam().name + "|" + name, points, std::to_string(errors));
  }
}

TEST_P(EveryCallTest, FailsCleanlyWhereverMemoryForObjectsEnds) {
  note_states();
  const bool every_point = asked_for("VELDRA_EVERY_POINT", 0) != 0;
  for (const bool lasting : {false, true}) {
    for (int n = 1;; n += every_point ? 1 : 1 + n / 10) {
      SCOPED_TRACE("allocation " + std::to_string(n) + (lasting ? " and all after it" : ""));
      if (!meets_faults([] {}, n, lasting)) break;
    }
  }
  measured("every call", GetParam().name + "|operator new", points, std::to_string(errors));
}

TEST(ValueTest, ACopyThatMemoryEndsInLeavesBothWhole) {
  const Params values = {std::string(100, 'x'), 1, Blob(100)};
  for (int n = 1;; ++n) {
    Params copy = {std::string(50, 'y'), Blob(50), nullptr};
    try {
      const FailingNew allocations(n, false);
      copy = Params(values);
      copy[2] = values[0];
    } catch (const std::bad_alloc&) {
    }
    if (!FailingNew::met()) break;
    EXPECT_TRUE(copy[0].as_text().starts_with(copy[0] == values[0] ? 'x' : 'y'));
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, EveryCallTest, testing::ValuesIn(operations()), name_of);

using FullDiskTest = EveryCallTest;

TEST_P(FullDiskTest, KeepsTheOldStateWhereverTheRoomEnds) {
  note_states();
  for (std::int64_t room = 0;; room += 1 + 4096 + room / 2) {
    SCOPED_TRACE("room for " + std::to_string(room) + " bytes");
    if (!meets_faults([&] { vfs.leave_room(room); })) break;
    // SQLite calls it an I/O error when the index of the log cannot grow.
    EXPECT_TRUE(error.empty() || error.find("full") != error.npos || error == "disk I/O error")
        << error;
  }
  measured("full disk", GetParam().name, points, std::to_string(errors));
}

bool needs_room(const Operation& it) {
  return it.kind == Operation::Kind::Writes && it.name != "create_schema";
}

INSTANTIATE_TEST_SUITE_P(Operations, FullDiskTest, testing::ValuesIn(operations_that(needs_room)),
                         name_of);

}  // namespace
}  // namespace veldra
