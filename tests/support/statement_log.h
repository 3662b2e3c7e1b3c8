#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// Notes every statement that a connection begins to run, triggers and the statements that SQLite
/// runs for itself left out. The connection outlives the guard.
class StatementLog {
 public:
  explicit StatementLog(Connection& connection) : _db(connection.handle()) {
    sqlite3_trace_v2(_db, SQLITE_TRACE_STMT, &StatementLog::_note, this);
  }
  StatementLog(const StatementLog&) = delete;
  StatementLog& operator=(const StatementLog&) = delete;
  ~StatementLog() { sqlite3_trace_v2(_db, 0, nullptr, nullptr); }

  std::vector<std::string> statements() const {
    const std::lock_guard guard(_mutex);
    return _statements;
  }

  /// How many of them begin with `text`.
  std::ptrdiff_t count(std::string_view text) const {
    const std::lock_guard guard(_mutex);
    return std::ranges::count_if(
        _statements, [&](const std::string& statement) { return statement.starts_with(text); });
  }

 private:
  static int _note(unsigned, void* log, void* statement, void* trigger_comment) {
    auto& self = *static_cast<StatementLog*>(log);
    if (std::string_view(static_cast<const char*>(trigger_comment)).starts_with("--")) return 0;
    const std::lock_guard guard(self._mutex);
    self._statements.emplace_back(sqlite3_sql(static_cast<sqlite3_stmt*>(statement)));
    return 0;
  }

  sqlite3* _db;
  mutable std::mutex _mutex;  // guards the next field
  std::vector<std::string> _statements;
};

}  // namespace veldra
