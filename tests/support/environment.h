#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace veldra {

/// Gives an environment variable a value, or takes it away with a null pointer, until the guard
/// goes. For tests that run no other thread meanwhile.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const char* value) : _name(std::move(name)) {
    if (const char* before = std::getenv(_name.c_str()))  // NOLINT(concurrency-mt-unsafe)
      _before = before;
    _set(value);
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable() { _set(_before ? _before->c_str() : nullptr); }

 private:
  void _set(const char* value) const {
    if (value != nullptr)
      ::setenv(_name.c_str(), value, 1);  // NOLINT(concurrency-mt-unsafe)
    else
      ::unsetenv(_name.c_str());  // NOLINT(concurrency-mt-unsafe)
  }

  std::string _name;
  std::optional<std::string> _before;
};

}  // namespace veldra
