#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// Calls `seen` with the text of each statement that begins on a connection, which may be closed
/// but not destroyed meanwhile.
class StatementWatch {
 public:
  StatementWatch(Connection& connection, std::function<void(std::string_view)> seen)
      : _connection(connection), _seen(std::move(seen)) {
    sqlite3_trace_v2(connection.handle(), SQLITE_TRACE_STMT, &_traced, this);
  }
  StatementWatch(const StatementWatch&) = delete;
  StatementWatch& operator=(const StatementWatch&) = delete;
  ~StatementWatch() {
    if (sqlite3* const open = _connection.handle()) sqlite3_trace_v2(open, 0, nullptr, nullptr);
  }

 private:
  static int _traced(unsigned /*event*/, void* self, void* /*statement*/, void* text) {
    static_cast<StatementWatch*>(self)->_seen(static_cast<const char*>(text));
    return 0;
  }

  Connection& _connection;
  std::function<void(std::string_view)> _seen;
};

/// Notes every statement that begins on a connection, which outlives the guard.
class StatementLog {
 public:
  explicit StatementLog(Connection& connection)
      : _watch(connection, [this](std::string_view statement) {
          const std::lock_guard guard(_mutex);
          _statements.emplace_back(statement);
        }) {}

  /// How many of them begin with `text`.
  std::ptrdiff_t count(std::string_view text) const {
    const std::lock_guard guard(_mutex);
    return std::ranges::count_if(_statements,
                                 [&](const std::string& it) { return it.starts_with(text); });
  }

 private:
  mutable std::mutex _mutex;  // guards the next field
  std::vector<std::string> _statements;
  StatementWatch _watch;
};

}  // namespace veldra
