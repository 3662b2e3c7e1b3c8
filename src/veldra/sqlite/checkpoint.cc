// The read transaction that stands guard, and the checkpoints that it guards.
#include "veldra/sqlite/checkpoint.h"

#include <sqlite3.h>

#include "veldra/sqlite/connection.h"
#include "veldra/sqlite/row.h"

namespace veldra {
namespace {

constexpr int CHECKPOINT_FRAMES = 1000;

/// A read transaction at the newest commit, of a connection of its own, for as long as it lives.
/// Without the classes of this layer: it is opened where nothing may throw.
class Guard {
 public:
  explicit Guard(const char* path) noexcept {
    constexpr int FLAGS = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    stands =
        sqlite3_open_v2(path, &_db, FLAGS, nullptr) == SQLITE_OK &&
        sqlite3_exec(_db, "BEGIN; PRAGMA user_version", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard() { sqlite3_close(_db); }

  bool stands = false;

 private:
  sqlite3* _db = nullptr;
};

int after_commit(void* /*none*/, sqlite3* db, const char* schema, int frames) noexcept {
  if (frames < CHECKPOINT_FRAMES) return SQLITE_OK;
  const Guard guard(sqlite3_db_filename(db, schema));
  if (guard.stands)
    sqlite3_wal_checkpoint_v2(db, schema, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  return SQLITE_OK;
}

bool checkpoint(Connection& connection, std::string_view pragma) {
  const Guard guard(sqlite3_db_filename(connection.handle(), "main"));
  if (!guard.stands) return false;
  const std::optional<Row> row = connection.fetchone(pragma);
  return !row || (*row)[0].as_integer() == 0;
}

}  // namespace

void checkpoint_guarded_after_commits(sqlite3* db) noexcept {
  sqlite3_wal_hook(db, after_commit, nullptr);
}

bool empty_log(Connection& connection) {
  // First everything into the file: a guard that then reads the file alone does not hold back the
  // truncation that it guards.
  return checkpoint(connection, "PRAGMA wal_checkpoint(FULL)") &&
         checkpoint(connection, "PRAGMA wal_checkpoint(TRUNCATE)");
}

}  // namespace veldra
