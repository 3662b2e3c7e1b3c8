#pragma once

#include <chrono>
#include <optional>

#include "veldra/sync/deadline.h"

struct sqlite3_stmt;

namespace veldra {

struct ConnectionState;

/// Has SQLite end the call that runs on a connection once a deadline is reached. Internal.
///
///     const auto guard = state.lock();
///     const LimitedCall limited(state, deadline);
///
/// It asks every `OPERATIONS` steps of SQLite's machine, and while it waits for a locked file
/// (https://www.sqlite.org/c3ref/busy_handler.html).
///
/// Nobody else is touched: it is there within one holding of the connection's mutex, or one loan,
/// and takes away all that it installed. Nor is a statement that is done: SQLite asks a last time
/// when a write has been committed already.
class LimitedCall {
 public:
  static constexpr int OPERATIONS = 100;

  /// Does nothing without a deadline. Throws `QueryInterrupted` when it is reached already.
  LimitedCall(ConnectionState& state, const Deadline* deadline);
  LimitedCall(const LimitedCall&) = delete;
  LimitedCall& operator=(const LimitedCall&) = delete;
  ~LimitedCall();

  /// Throws `QueryInterrupted` once the deadline is reached; for between two rows.
  void look() const {
    if (_state != nullptr) _look();
  }

  /// The statement that is stepped from here on.
  void runs(sqlite3_stmt* statement) noexcept { _statement = statement; }

  /// True when it has had SQLite give up.
  bool gave_up() const noexcept { return _gave_up; }

 private:
  void _look() const;
  bool _ends_statement() noexcept;
  bool _waits_on(int times_waited) noexcept;

  ConnectionState* _state = nullptr;  // none where there is nothing to do
  const Deadline* _deadline = nullptr;
  sqlite3_stmt* _statement = nullptr;            // none while one is prepared
  std::chrono::milliseconds _usual_patience{0};  // with a locked file
  Deadline::Clock::time_point _usual_patience_ends;
  bool _gave_up = false;
};

}  // namespace veldra
