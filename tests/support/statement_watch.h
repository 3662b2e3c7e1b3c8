#pragma once

#include <sqlite3.h>

#include <functional>
#include <string_view>
#include <utility>

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

}  // namespace veldra
