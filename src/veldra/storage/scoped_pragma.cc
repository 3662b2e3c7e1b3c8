// Settings of a connection that hold for a scope.
#include "veldra/storage/scoped_pragma.h"

namespace veldra {
namespace {

std::int64_t current(Connection& connection, std::string_view name) {
  return (*connection.fetchone("PRAGMA main." + std::string(name)))[0].as_integer();
}

}  // namespace

ScopedPragma::ScopedPragma(Connection& connection, std::string_view name, std::string_view value)
    : _connection(connection), _name(name), _usual(current(connection, name)) {
  _set(value);
}

ScopedPragma::~ScopedPragma() {
  try {
    _set(std::to_string(_usual));
  } catch (const std::exception&) {
    // Only memory was lacking, or the connection is closed; none of these changes a result.
  }
}

void ScopedPragma::_set(std::string_view value) {
  _connection.fetchall("PRAGMA main." + std::string(_name) + "=" + std::string(value));
}

FastDelete::FastDelete(Connection& connection) {
  if (current(connection, "secure_delete") == 1)
    _pragma.emplace(connection, "secure_delete", "FAST");
}

}  // namespace veldra
