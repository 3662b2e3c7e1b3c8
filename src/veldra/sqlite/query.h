#pragma once

#include <mutex>
#include <optional>

#include "veldra/sqlite/connection_state.h"
#include "veldra/sqlite/limited_call.h"
#include "veldra/sqlite/query_terms.h"
#include "veldra/sqlite/row.h"
#include "veldra/sqlite/value.h"

namespace veldra {

/// A statement that is run and read within one call of its connection: a cursor that nobody else
/// sees would cost a point query a twentieth of its time. Internal.
///
/// Errors: those of `Cursor`; after one the statement is given back.
class Query {
 public:
  /// Takes the connection's mutex for its lifetime. `params` stay as long.
  Query(ConnectionState& state, std::string_view sql, const Params& params,
        const QueryTerms& terms);
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query();

  /// The next row; not to be asked again after the last.
  std::optional<Row> next();

  bool only_reads() const noexcept { return _statement == nullptr || _statement->only_reads(); }

 private:
  ConnectionState& _state;
  const std::unique_lock<CallMutex> _guard;
  const LimitedCall _limited;
  Statement* _statement = nullptr;  // on loan; null for a text without any
};

}  // namespace veldra
