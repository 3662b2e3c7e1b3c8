#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/export.h"
#include "veldra/sqlite/cursor.h"
#include "veldra/sqlite/value.h"

struct sqlite3;

namespace veldra {

/// The text that makes SQLite take `path` as a plain file name, whatever it looks like: a `file:`
/// name is a URI to some builds of SQLite even when nobody asks for one
/// (https://www.sqlite.org/uri.html). Exactly `:memory:` stays what it is.
/// Throws `ProgrammingError` for a path that holds a NUL byte.
VELDRA_EXPORT std::string plain_file_name(const std::filesystem::path& path);

/// One open SQLite connection, in autocommit: it never begins a transaction by itself.
///
/// Values come back in their own storage class, and a statement that finds the file locked tries
/// again for `BUSY_TIMEOUT`.
///
/// Thread safety: any member, from any thread: one mutex per connection is held for each call of
/// the connection and of its cursors, so SQLite's message and its count of changes belong to the
/// call that reads them. `close` waits for a call that is running. Only a `ReadWrite` connection
/// has a mutex, inside SQLite too: another and its cursors are for one thread at a time.
/// Ownership: owns the SQLite handle; cursors may outlive it. Destroying it closes it.
class VELDRA_EXPORT Connection {
 public:
  /// `Immutable` is `ReadOnly` for a file that nobody can write, such as one on read-only media: it
  /// needs no lock and no file beside it, and the log, if there is one, is not read
  /// (https://www.sqlite.org/uri.html#uriimmutable).
  enum class Mode { ReadWrite, ReadOnly, Immutable };

  static constexpr std::chrono::milliseconds BUSY_TIMEOUT{5000};

  /// Opens `path`, a plain file name; `ReadWrite` creates the file when it is missing. Throws
  /// `Error` ("unable to open database file").
  explicit Connection(const std::filesystem::path& path, Mode mode = Mode::ReadWrite);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  Cursor cursor();
  Cursor execute(std::string_view sql, const Params& params = {});
  Cursor executemany(std::string_view sql, const ParamsList& params_list);

  /// The first row that `sql` gives, or all of them. No statement is open when they return: one
  /// that writes has run to its end, the rest of a query is not read.
  std::optional<Row> fetchone(std::string_view sql, const Params& params = {});
  std::vector<Row> fetchall(std::string_view sql, const Params& params = {});

  /// The same, held to `terms`.
  std::optional<Row> fetchone(std::string_view sql, const Params& params, const QueryTerms& terms);
  std::vector<Row> fetchall(std::string_view sql, const Params& params, const QueryTerms& terms);

  /// Shows the rows one by one, until `visit` returns false. On the writer a statement that writes
  /// has run to its end before the first, and between two rows the connection may be used by
  /// anyone, `visit` included.
  void fetcheach(std::string_view sql, const Params& params,
                 const std::function<bool(const Row&)>& visit, const QueryTerms& terms);

  /// Finishes every statement, rolls an open transaction back and closes the handle. May be
  /// repeated. Throws `Error` when SQLite refuses; the connection then stays open.
  void close();

  /// True once an I/O error or a corrupt page was met, a transaction could not be ended, or a
  /// pragma ran on a `ReadOnly` connection: better not lent again.
  bool damaged() const noexcept;

  /// Gives back the pages that it keeps in memory and does not need at this moment
  /// (https://www.sqlite.org/c3ref/db_release_memory.html).
  void release_memory() noexcept;

  /// How long a statement waits for a locked file before it throws; `BUSY_TIMEOUT` at first.
  void set_busy_timeout(std::chrono::milliseconds timeout) noexcept;

  /// Begins the transaction of a scope, which `commit` or `roll_back` ends. Where SQLite itself
  /// rolls it back, after an error, every statement until then throws `OperationalError`, `commit`
  /// included: none runs in autocommit unawares.
  void begin();
  void commit();

  /// Needs no memory: the statement is prepared before the transaction begins, every time anew,
  /// because a change of settings makes SQLite prepare its statements again when they run. What it
  /// cannot end all the same is ended before the connection's next statement, so that no later
  /// write is acknowledged inside it.
  void roll_back() noexcept;

  /// The SQL of a statement whose rows have not been read to the end, "" when there is none. Under
  /// it SQLite drops no table and detaches no file, and once another process has written, no write
  /// begins (https://www.sqlite.org/rescode.html#busy_snapshot).
  std::string held_statement() const;

  /// Throws `ProgrammingError` to a thread that is inside a call of the connection: a function,
  /// hook or trace callback of the host, run by one of its statements. So does every other member
  /// that may throw; `roll_back` and destruction take effect once that call is over.
  void refuse_reentry() const;

  /// Attaches the file at `path` under the name `schema`, after detaching what has that name now.
  void attach(const std::filesystem::path& path, const std::string& schema);

  /// Detaches what `attach` attached, without an exception. What SQLite cannot let go yet, inside a
  /// transaction or for want of memory, is detached at the connection's next statement that can.
  void detach() noexcept;

  /// Sets one of SQLite's switches to 0 or 1, or with -1 leaves it, and returns what it was. Needs
  /// no memory, and takes effect inside a transaction too
  /// (https://www.sqlite.org/c3ref/c_dbconfig_defensive.html).
  int configure(int option, int value) noexcept;

  /// SQLite's handle, for what has no wrapper (functions, hooks); null once closed. The caller
  /// keeps others off the connection meanwhile, and registers a function that could do harm in a
  /// stranger's file with SQLITE_DIRECTONLY: views, triggers and checks may run any other
  /// (https://www.sqlite.org/c3ref/c_deterministic.html).
  sqlite3* handle() const noexcept;

 private:
  std::shared_ptr<ConnectionState> _state;
};

}  // namespace veldra
