// Whatever call into the system fails: a documented error, nothing half done, nothing left behind.
#include <sqlite3.h>

#include <future>
#include <string>
#include <utility>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/database_test_access.h"
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
    {"memory", {SystemCall::Memory}},
};

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

class EveryCallTest : public OperationTest {
 protected:
  /// Fails the n-th call; false when the operation made fewer.
  bool fail(int n, const Fault& fault) {
    TempDirectory directory;
    copy_files(directory);
    const Operation& operation = GetParam();
    Database db(index_in(directory.path()));
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
    expect_whole(db.db_path);
    expect_works(db);
    EXPECT_EQ(_vfs.open_files(), 0) << "a connection stayed open";
    return true;
  }

  FaultVfs _vfs;
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

INSTANTIATE_TEST_SUITE_P(Operations, EveryCallTest, testing::ValuesIn(operations()), name_of);

}  // namespace
}  // namespace veldra
