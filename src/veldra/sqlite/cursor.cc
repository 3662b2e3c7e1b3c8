// Running a statement to its end or row by row, and giving it back to its connection.
#include "veldra/sqlite/cursor.h"

#include <sqlite3.h>

#include <string>
#include <utility>

#include "veldra/errors.h"
#include "veldra/sqlite/connection_state.h"

namespace veldra {
namespace {

/// SQLITE_STATIC for parameters that stay until the run is over, otherwise SQLite copies them.
int bind(sqlite3_stmt* statement, int position, const Value& value,
         sqlite3_destructor_type keeping) {
  switch (value.type()) {
    case StorageClass::Integer:
      return sqlite3_bind_int64(statement, position, value.as_integer());
    case StorageClass::Real:
      return sqlite3_bind_double(statement, position, value.as_real());
    case StorageClass::Text: {
      const std::string_view text = value.as_text();
      return sqlite3_bind_text64(statement, position, text.data(), text.size(), keeping,
                                 SQLITE_UTF8);
    }
    case StorageClass::Blob: {
      const auto blob = value.as_blob();
      // A null address would bind NULL (https://www.sqlite.org/c3ref/bind_blob.html).
      if (blob.empty()) return sqlite3_bind_zeroblob(statement, position, 0);
      return sqlite3_bind_blob64(statement, position, blob.data(), blob.size(), keeping);
    }
    case StorageClass::Null:
      break;
  }
  return sqlite3_bind_null(statement, position);
}

}  // namespace

Cursor::Cursor(std::shared_ptr<ConnectionState> state) noexcept : _state(std::move(state)) {}

Cursor::Cursor(Cursor&& other) noexcept = default;

Cursor& Cursor::operator=(Cursor&& other) noexcept {
  if (this == &other) return *this;
  close();
  _state = std::move(other._state);
  _closed = other._closed;
  _statement = std::move(other._statement);
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
  try {
    return operation();
  } catch (...) {
    _abandon();
    throw;
  }
}

void Cursor::execute(std::string_view sql, const Params& params) {
  _execute(sql, params, Lifetime::ThisCall);
}

void Cursor::executemany(std::string_view sql, const ParamsList& params_list) {
  _locked([&] {
    _prepare(sql);
    if (!_statement) return;
    if (_statement->counts_changes()) _rowcount = 0;
    for (const Params& params : params_list) {
      _bind(params, Lifetime::UntilClosed);
      _run_to_end();
      _statement->reset();
    }
    _finish();
  });
}

void Cursor::_execute(std::string_view sql, const Params& params, Lifetime lifetime) {
  _locked([&] {
    _prepare(sql);
    if (_statement && _statement->only_reads()) {
      _bind(params, lifetime);
      _on_row = _step();
      if (!_on_row) _finish();
      return;
    }
    if (_statement && _statement->counts_changes()) _rowcount = 0;
    _bind(params, Lifetime::UntilClosed);
    if (_statement) _run_to_end();
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
  const auto guard = _state->lock();
  _closed = true;
  _abandon();
}

void Cursor::_check_open() const {
  if (_state->db == nullptr) throw ProgrammingError("Cannot operate on a closed database.");
  if (_closed) throw ProgrammingError("Cannot operate on a closed cursor.");
}

void Cursor::_prepare(std::string_view sql) {
  _abandon();
  _statement = _state->lend(sql);
}

void Cursor::_bind(const Params& params, Lifetime lifetime) {
  const int placeholders = _statement ? _statement->parameters() : 0;
  if (std::cmp_not_equal(params.size(), placeholders)) {
    throw ProgrammingError("the statement has " + std::to_string(placeholders) + " placeholders, " +
                           std::to_string(params.size()) + " parameters were given");
  }
  const auto keeping = lifetime == Lifetime::UntilClosed ? SQLITE_STATIC : SQLITE_TRANSIENT;
  int position = 0;
  for (const Value& value : params) {
    const int code = bind(_statement->get(), ++position, value, keeping);
    if (code != SQLITE_OK) _state->fail(code);
  }
}

bool Cursor::_step() {
  const int code = _statement->step();
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) _state->fail(code);
  return false;
}

void Cursor::_run_to_end() {
  while (_step()) _rows.push_back(Row(_statement->get(), _statement->column_names()));
  if (_statement->counts_changes()) _rowcount += sqlite3_changes64(_state->db);
}

std::optional<Row> Cursor::_next() {
  if (_next_row < _rows.size()) return std::move(_rows[_next_row++]);
  if (!_statement) return std::nullopt;
  if (!_on_row && !_step()) {
    _finish();
    return std::nullopt;
  }
  _on_row = false;
  return Row(_statement->get(), _statement->column_names());
}

void Cursor::_finish() noexcept {
  _on_row = false;
  if (_statement) _state->take_back(std::move(_statement));
}

void Cursor::_abandon() noexcept {
  _finish();
  _rows.clear();
  _next_row = 0;
  _rowcount = -1;
}

}  // namespace veldra
