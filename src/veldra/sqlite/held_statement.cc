// Naming the statement that SQLite does not name when it stands in the way.
#include "veldra/sqlite/held_statement.h"

#include <sqlite3.h>

#include <string>
#include <string_view>

namespace veldra {

void rethrow_naming_held_statement(const OperationalError& error, const Connection& connection) {
  const std::string_view message(error.what());
  // A plain SQLITE_BUSY means another connection. DETACH has no code of its own, only the text.
  const bool by_this_connection = message.ends_with(" is locked") && error.code() != SQLITE_BUSY;
  const std::string held = by_this_connection ? connection.held_statement() : "";
  if (held.empty()) throw;
  throw_error(error.code(), std::string(message).append("; a cursor holds ").append(held));
}

}  // namespace veldra
