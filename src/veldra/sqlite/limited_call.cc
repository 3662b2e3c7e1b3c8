// The handlers through which SQLite asks whether to go on.
#include "veldra/sqlite/limited_call.h"

#include <sqlite3.h>

#include <algorithm>
#include <thread>

#include "veldra/errors.h"
#include "veldra/platform/coarse_clock.h"
#include "veldra/sqlite/connection.h"
#include "veldra/sqlite/connection_state.h"

namespace veldra {
namespace {

/// How long statements wait for a locked file: on the writer what the host has set, 0 where that is
/// a handler of its own (https://www.sqlite.org/pragma.html#pragma_busy_timeout).
std::chrono::milliseconds usual_patience(const ConnectionState& state) {
  if (!state.is_shared) return Connection::BUSY_TIMEOUT;
  int milliseconds = 0;
  const auto read = [](void* result, int, char** values, char**) {
    *static_cast<int*>(result) = std::atoi(values[0]);
    return 0;
  };
  const int code = sqlite3_exec(state.db, "PRAGMA busy_timeout", read, &milliseconds, nullptr);
  if (code != SQLITE_OK) throw_error(code, sqlite3_errmsg(state.db));
  return std::chrono::milliseconds(milliseconds);
}

}  // namespace

LimitedCall::LimitedCall(ConnectionState& state, const Deadline* deadline) {
  if (deadline == nullptr || !deadline->is_set() || state.db == nullptr) return;
  _deadline = deadline;
  _look();
  _usual_patience = usual_patience(state);
  _state = &state;
  state.limited = this;
  sqlite3_progress_handler(
      state.db, OPERATIONS,
      [](void* self) -> int { return static_cast<LimitedCall*>(self)->_ends_statement(); }, this);
  if (_usual_patience.count() == 0) return;
  sqlite3_busy_handler(
      state.db,
      [](void* self, int times) -> int {
        return static_cast<LimitedCall*>(self)->_waits_on(times);
      },
      this);
}

LimitedCall::~LimitedCall() {
  if (_state == nullptr) return;
  _state->limited = nullptr;
  if (_state->db == nullptr) return;
  sqlite3_progress_handler(_state->db, 0, nullptr, nullptr);
  if (_usual_patience.count() == 0) return;
  sqlite3_busy_timeout(_state->db, static_cast<int>(_usual_patience.count()));
}

void LimitedCall::_look() const {
  if (_deadline->reached(coarse_now())) throw_error(SQLITE_INTERRUPT, "interrupted");
}

bool LimitedCall::_ends_statement() noexcept {
  const bool is_done = _statement != nullptr && sqlite3_stmt_busy(_statement) == 0;
  return !is_done && (_gave_up = _deadline->reached(coarse_now()));
}

bool LimitedCall::_waits_on(int times_waited) noexcept {
  const auto now = Deadline::Clock::now();
  if (times_waited == 0) _usual_patience_ends = now + _usual_patience;
  _gave_up = _deadline->reached(now);
  if (_gave_up || now >= _usual_patience_ends) return false;
  const std::chrono::milliseconds pause(std::min(1 << std::min(times_waited, 4), 10));
  std::this_thread::sleep_until(
      std::min({now + pause, _deadline->next_look(), _usual_patience_ends}));
  return true;
}

}  // namespace veldra
