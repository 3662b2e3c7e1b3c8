#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "veldra/sqlite/connection.h"

/// Settings of a connection that hold for a scope. Internal; the caller keeps others off the
/// connection meanwhile.
namespace veldra {

/// The whole number that the pragma `name`, with or without a schema, gives. Throws
/// `OperationalError` when SQLite gives none.
std::int64_t pragma_value(Connection& connection, std::string_view name);

/// Gives a pragma that is a whole number another value for as long as it lives.
class ScopedPragma {
 public:
  ScopedPragma(Connection& connection, std::string_view name, std::string_view value);
  ScopedPragma(const ScopedPragma&) = delete;
  ScopedPragma& operator=(const ScopedPragma&) = delete;
  /// Where memory is lacking, or the connection is closed, the value stays.
  ~ScopedPragma();

 private:
  void _set(std::string_view value);

  Connection& _connection;
  const std::string _name;
  const std::int64_t _usual;
};

/// Where SQLite overwrites what is deleted with zeros, as Debian's does: for a scope, only on the
/// pages that are written anyway, not on every page that becomes free
/// (https://www.sqlite.org/pragma.html#pragma_secure_delete).
class FastDelete {
 public:
  explicit FastDelete(Connection& connection);

 private:
  std::optional<ScopedPragma> _pragma;
};

/// Lets statements wait for a locked file for `timeout` at most, for as long as it lives; what the
/// host had set comes back on every path, since that needs no memory.
class ScopedBusyTimeout {
 public:
  ScopedBusyTimeout(Connection& connection, std::chrono::milliseconds timeout);
  ScopedBusyTimeout(const ScopedBusyTimeout&) = delete;
  ScopedBusyTimeout& operator=(const ScopedBusyTimeout&) = delete;
  ~ScopedBusyTimeout();

 private:
  Connection& _connection;
  const std::chrono::milliseconds _usual;
};

}  // namespace veldra
