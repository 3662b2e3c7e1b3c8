// Running a statement to its end or row by row, and giving it back to its connection.
#include "veldra/sqlite/cursor.h"

#include <sqlite3.h>

#include <utility>

#include "veldra/errors.h"
#include "veldra/sqlite/connection_state.h"
#include "veldra/sqlite/limited_call.h"

namespace veldra {

Cursor::Cursor(std::shared_ptr<ConnectionState> state, const QueryTerms& terms) noexcept
    : _state(std::move(state)), _terms(terms) {}

Cursor::Cursor(Cursor&& other) noexcept = default;

Cursor& Cursor::operator=(Cursor&& other) noexcept {
  if (this == &other) return *this;
  close();
  _state = std::move(other._state);
  _terms = other._terms;
  _closed = other._closed;
  _statement = other._statement;
  _on_row = other._on_row;
  _rows = std::move(other._rows);
  _next_row = other._next_row;
  _rowcount = other._rowcount;
  return *this;
}

Cursor::~Cursor() {
  close();
}

template <typename Operation>
auto Cursor::_locked(Operation operation) {
  if (!_state) throw ProgrammingError("Cannot operate on a cursor that was moved from.");
  const auto guard = _state->lock();
  _check_open();
  const LimitedCall limited(*_state, _terms.deadline);
  struct Running {
    bool& running;
    explicit Running(bool& flag) : running(flag) { running = true; }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() { running = false; }
  } const running(_running);
  try {
    return operation();
  } catch (...) {
    _abandon();
    throw;
  }
}

void Cursor::execute(std::string_view sql, const Params& params) {
  _locked([&] {
    _prepare(sql);
    if (_statement != nullptr && _statement->only_reads()) {
      _state->bind(_statement, params, Binding::Copied);
      _on_row = _state->step(*_statement);
      if (!_on_row) _finish();
      return;
    }
    if (_statement != nullptr && _statement->counts_changes()) _rowcount = 0;
    _state->bind(_statement, params, Binding::Borrowed);
    if (_statement != nullptr) _run_to_end();
    _finish();
  });
}

void Cursor::executemany(std::string_view sql, const ParamsList& params_list) {
  _locked([&] {
    _prepare(sql);
    if (_statement == nullptr) return;
    if (_statement->counts_changes()) _rowcount = 0;
    for (const Params& params : params_list) {
      _state->bind(_statement, params, Binding::Borrowed);
      _run_to_end();
      _statement->reset();
    }
    _finish();
  });
}

std::optional<Row> Cursor::fetchone() {
  return _locked([&] { return _next(); });
}

std::vector<Row> Cursor::fetchall() {
  return _locked([&] {
    std::vector<Row> rows;
    while (std::optional<Row> row = _next()) rows.push_back(*std::move(row));
    return rows;
  });
}

std::int64_t Cursor::rowcount() const {
  if (!_state) throw ProgrammingError("Cannot operate on a cursor that was moved from.");
  const auto guard = _state->lock();
  _check_open();
  return _rowcount;
}

void Cursor::close() noexcept {
  if (!_state) return;
  const auto guard = _state->lock_or_join();
  _closed = true;
  if (!_state->is_shared || guard.owns_lock())
    _abandon();
  else if (_statement != nullptr && !_running)
    _state->statements.abandon(std::exchange(_statement, nullptr));
}

void Cursor::_check_open() const {
  _state->require_open();
  if (_closed) throw ProgrammingError("Cannot operate on a closed cursor.");
}

void Cursor::_prepare(std::string_view sql) {
  _abandon();
  _statement = _state->lend(sql);
  if (_terms.refuses_changes) require_query(_statement);
}

void Cursor::_run_to_end() {
  while (_state->step(*_statement))
    _rows.push_back(Row(_statement->get(), _statement->column_names()));
  if (_statement->counts_changes()) _rowcount += sqlite3_changes64(_state->db);
}

std::optional<Row> Cursor::_next() {
  if (_next_row < _rows.size()) return std::move(_rows[_next_row++]);
  if (_statement == nullptr) return std::nullopt;
  // `close` was tried, and SQLite refused it after the statement had ended.
  if (_statement->get() == nullptr) ConnectionState::throw_closed();
  if (!_on_row && !_state->step(*_statement)) {
    _finish();
    return std::nullopt;
  }
  _on_row = false;
  return Row(_statement->get(), _statement->column_names());
}

void Cursor::_finish() noexcept {
  _on_row = false;
  if (_statement != nullptr) _state->statements.take_back(std::exchange(_statement, nullptr));
}

void Cursor::_abandon() noexcept {
  _finish();
  _rows.clear();
  _next_row = 0;
  _rowcount = -1;
}

}  // namespace veldra
