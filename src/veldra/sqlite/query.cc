// Running a statement and reading its rows in one go.
#include "veldra/sqlite/query.h"

#include "veldra/errors.h"

namespace veldra {

Query::Query(ConnectionState& state, std::string_view sql, const Params& params)
    : _state(state), _guard(state.lock()) {
  if (_state.db == nullptr) throw ProgrammingError("Cannot operate on a closed database.");
  _statement = _state.lend(sql);
  try {
    _state.bind(_statement, params, Binding::Borrowed);
  } catch (...) {
    if (_statement != nullptr) _state.statements.take_back(_statement);
    throw;
  }
}

Query::~Query() {
  if (_statement != nullptr) _state.statements.take_back(_statement);
}

std::optional<Row> Query::next() {
  if (_statement == nullptr || !_state.step(*_statement)) return std::nullopt;
  return Row(_statement->get(), _statement->column_names());
}

}  // namespace veldra
