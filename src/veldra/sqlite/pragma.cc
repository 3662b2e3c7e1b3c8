// Reading a pragma, and giving one another value for a scope.
#include "veldra/sqlite/pragma.h"

#include "veldra/errors.h"
#include "veldra/sqlite/row.h"

namespace veldra {

std::int64_t pragma_value(Connection& connection, std::string_view name) {
  const std::optional<Row> row = connection.fetchone(std::string("PRAGMA ").append(name));
  if (!row) throw OperationalError(std::string("SQLite has no pragma ").append(name));
  return (*row)[0].as_integer();
}

ScopedPragma::ScopedPragma(Connection& connection, std::string_view name, std::string_view value)
    : _connection(connection), _name(name), _usual(pragma_value(connection, name)) {
  _set(value);
}

ScopedPragma::~ScopedPragma() {
  try {
    _set(std::to_string(_usual));
  } catch (const std::exception&) {
    // Only memory was lacking, or the connection is closed: the operation's own outcome counts.
  }
}

void ScopedPragma::_set(std::string_view value) {
  _connection.fetchall("PRAGMA " + _name + "=" + std::string(value));
}

FastDelete::FastDelete(Connection& connection) {
  if (pragma_value(connection, "main.secure_delete") == 1)
    _pragma.emplace(connection, "main.secure_delete", "FAST");
}

ScopedBusyTimeout::ScopedBusyTimeout(Connection& connection, std::chrono::milliseconds timeout)
    : _connection(connection), _usual(pragma_value(connection, "busy_timeout")) {
  _connection.set_busy_timeout(timeout);
}

ScopedBusyTimeout::~ScopedBusyTimeout() {
  _connection.set_busy_timeout(_usual);
}

}  // namespace veldra
