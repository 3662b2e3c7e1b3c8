#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/statement_watch.h"

namespace veldra {

/// Notes every statement that begins on a connection, those of triggers left out. The connection
/// outlives the guard.
class StatementLog {
 public:
  explicit StatementLog(Connection& connection)
      : _watch(connection, [this](std::string_view statement) { _note(statement); }) {}

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
  void _note(std::string_view statement) {
    if (statement.starts_with("--")) return;  // SQLite shows a trigger's statement as a comment
    const std::lock_guard guard(_mutex);
    _statements.emplace_back(statement);
  }

  mutable std::mutex _mutex;  // guards the next field
  std::vector<std::string> _statements;
  StatementWatch _watch;
};

}  // namespace veldra
