#pragma once

#include "veldra/errors.h"
#include "veldra/sqlite/connection.h"

namespace veldra {

/// Throws `error` again. Where SQLite refused something because of a statement of the same
/// connection whose rows nobody has read to the end, the text ends with that statement's:
/// "database table is locked; a cursor holds SELECT …". Internal.
[[noreturn]] void rethrow_naming_held_statement(const OperationalError& error,
                                                const Connection& connection);

/// Runs `operation` on `connection`; its errors name the statement that is held. Internal.
template <typename Operation>
decltype(auto) naming_held_statement(const Connection& connection, Operation&& operation) {
  try {
    return operation();
  } catch (const OperationalError& error) {
    rethrow_naming_held_statement(error, connection);
  }
}

}  // namespace veldra
