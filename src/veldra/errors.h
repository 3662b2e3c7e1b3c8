#pragma once

#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "veldra/export.h"

/// The exceptions of the layer.
///
/// Three families that share no base but `std::exception`: what SQLite reports (`Error`), what the
/// file system reports (`OSError`), and what the layer itself refuses (`RuntimeError`,
/// `ReaderUnavailable`, `SchemaMigrationError`). No error is translated on its way to the caller.
namespace veldra {

/// Every error of SQLite and of its wrapper.
///
/// `what()` is SQLite's message text alone; what was being done stands in the log.
class VELDRA_EXPORT Error : public std::exception {
 public:
  explicit Error(std::string message, int code = 0);

  const char* what() const noexcept override;

  /// SQLite's extended result code, 0 where SQLite gave none
  /// (https://www.sqlite.org/rescode.html).
  int code() const noexcept { return _code; }

 private:
  std::string _message;
  int _code;
};

/// The operation could not be carried out here and now: locked, full, unreadable, no such table.
class VELDRA_EXPORT OperationalError : public Error {
 public:
  using Error::Error;
  ~OperationalError() override;
};

/// A limit was reached, or somebody called sqlite3_interrupt: `what()` is "interrupted", `code()`
/// SQLITE_INTERRUPT.
///
/// A statement that writes leaves nothing behind. Inside a transaction SQLite rolls all of that
/// transaction back (https://www.sqlite.org/c3ref/interrupt.html): until its scope ends every
/// further statement of the thread throws `OperationalError`, and so does the end of the scope.
class VELDRA_EXPORT QueryInterrupted : public OperationalError {
 public:
  QueryInterrupted();
  ~QueryInterrupted() override;
};

/// A constraint of the schema refused the change.
class VELDRA_EXPORT IntegrityError : public Error {
 public:
  using Error::Error;
  ~IntegrityError() override;
};

/// A mistake of the caller: wrong number of parameters, two statements in one text, a closed
/// cursor.
class VELDRA_EXPORT ProgrammingError : public Error {
 public:
  using Error::Error;
  ~ProgrammingError() override;
};

/// The database is not open: never connected, or closed.
class VELDRA_EXPORT RuntimeError : public std::exception {
 public:
  explicit RuntimeError(std::string message);
  ~RuntimeError() override;
  const char* what() const noexcept override;

 private:
  std::string _message;
};

/// A failed file-system operation. `code()` carries errno; `what()` names the operation, the path
/// and the reason.
class VELDRA_EXPORT OSError : public std::system_error {
 public:
  OSError(std::error_code code, std::string message);
  ~OSError() override;
  const char* what() const noexcept override;

 private:
  std::string _message;
};

/// A file that must be there is not.
class VELDRA_EXPORT FileNotFoundError : public OSError {
 public:
  explicit FileNotFoundError(std::string message);
  ~FileNotFoundError() override;
};

/// The reader pool has no connection to lend: ask the writer connection instead.
class VELDRA_EXPORT ReaderUnavailable : public std::exception {
 public:
  explicit ReaderUnavailable(std::string message);
  ~ReaderUnavailable() override;
  const char* what() const noexcept override;

 private:
  std::string _message;
};

/// A migration step failed; the file is at the version before that step.
class VELDRA_EXPORT SchemaMigrationError : public std::exception {
 public:
  explicit SchemaMigrationError(std::string message);
  ~SchemaMigrationError() override;
  const char* what() const noexcept override;

 private:
  std::string _message;
};

/// Throws the type that belongs to SQLite's (extended) result code, with `message` as it stands.
[[noreturn]] void throw_error(int code, std::string message);

/// Throws an `OSError` for `action` on `path`: "cannot create directory /x: Permission denied".
[[noreturn]] void throw_os_error(std::error_code code, std::string_view action,
                                 const std::filesystem::path& path);

}  // namespace veldra
