// Running a statement and reading its rows in one go.
#include "veldra/sqlite/query.h"

namespace veldra {

Query::Query(ConnectionState& state, std::string_view sql, const Params& params,
             const QueryTerms& terms)
    : _state(state), _guard(state.lock()), _limited(state, terms.deadline) {
  _state.require_open();
  _statement = _state.lend(sql);
  try {
    if (terms.refuses_changes) require_query(_statement);
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
  if (_statement == nullptr) return std::nullopt;
  _limited.look();
  if (!_state.step(*_statement)) return std::nullopt;
  return Row(_statement->get(), _statement->column_names());
}

}  // namespace veldra
