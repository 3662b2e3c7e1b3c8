// The exception types and the map from SQLite's result codes to them.
#include "veldra/errors.h"

#include <sqlite3.h>

#include <utility>

namespace veldra {

Error::Error(std::string message, int code) : _message(std::move(message)), _code(code) {}
const char* Error::what() const noexcept {
  return _message.c_str();
}

OperationalError::~OperationalError() = default;
IntegrityError::~IntegrityError() = default;
ProgrammingError::~ProgrammingError() = default;

RuntimeError::RuntimeError(std::string message) : _message(std::move(message)) {}
RuntimeError::~RuntimeError() = default;
const char* RuntimeError::what() const noexcept {
  return _message.c_str();
}

OSError::OSError(std::error_code code, std::string message)
    : std::system_error(code), _message(std::move(message)) {}
OSError::~OSError() = default;
const char* OSError::what() const noexcept {
  return _message.c_str();
}

FileNotFoundError::FileNotFoundError(std::string message)
    : OSError(std::make_error_code(std::errc::no_such_file_or_directory), std::move(message)) {}
FileNotFoundError::~FileNotFoundError() = default;

ReaderUnavailable::ReaderUnavailable(std::string message) : _message(std::move(message)) {}
ReaderUnavailable::~ReaderUnavailable() = default;
const char* ReaderUnavailable::what() const noexcept {
  return _message.c_str();
}

SchemaMigrationError::SchemaMigrationError(std::string message) : _message(std::move(message)) {}
SchemaMigrationError::~SchemaMigrationError() = default;
const char* SchemaMigrationError::what() const noexcept {
  return _message.c_str();
}

QueryInterrupted::QueryInterrupted() : OperationalError("interrupted", SQLITE_INTERRUPT) {}
QueryInterrupted::~QueryInterrupted() = default;

void throw_error(int code, std::string message) {
  switch (code & 0xff) {  // the low byte of an extended code is its primary code
    case SQLITE_ERROR:
    case SQLITE_PERM:
    case SQLITE_ABORT:
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_NOMEM:
    case SQLITE_READONLY:
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_PROTOCOL:
    case SQLITE_SCHEMA:
      throw OperationalError(std::move(message), code);
    case SQLITE_INTERRUPT:
      throw QueryInterrupted();
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
      throw IntegrityError(std::move(message), code);
    case SQLITE_MISUSE:
    case SQLITE_RANGE:
      throw ProgrammingError(std::move(message), code);
    default:
      throw Error(std::move(message), code);
  }
}

void throw_os_error(std::error_code code, std::string_view action,
                    const std::filesystem::path& path) {
  std::string message(action);
  message.append(" ").append(path.string()).append(": ").append(code.message());
  throw OSError(code, std::move(message));
}

}  // namespace veldra
