#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// A pragma of the writer that has another value for a scope. Internal.
class [[nodiscard]] ScopedPragma {
 public:
  ScopedPragma(Connection& connection, std::string_view name, std::string_view value);
  ScopedPragma(const ScopedPragma&) = delete;
  ScopedPragma& operator=(const ScopedPragma&) = delete;
  ~ScopedPragma();

 private:
  void _set(std::string_view value);

  Connection& _connection;
  std::string_view _name;
  std::int64_t _usual;
};

/// Where SQLite overwrites what is deleted with zeros, as Debian's does: for a scope, only on the
/// pages that are written anyway, not on every page that becomes free
/// (https://www.sqlite.org/pragma.html#pragma_secure_delete). Internal.
class [[nodiscard]] FastDelete {
 public:
  explicit FastDelete(Connection& connection);

 private:
  std::optional<ScopedPragma> _pragma;
};

}  // namespace veldra
