#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "veldra/export.h"
#include "veldra/sqlite/query_terms.h"
#include "veldra/sqlite/row.h"
#include "veldra/sqlite/value.h"

namespace veldra {

class Connection;
class Statement;
struct ConnectionState;

/// Runs one statement at a time on a connection and hands out its rows.
///
///     Cursor cursor = connection.cursor();
///     cursor.execute("SELECT path FROM files WHERE size > ?", {4096});
///     while (std::optional<Row> row = cursor.fetchone()) use((*row)[0].as_text());
///
/// A statement that writes has run to its end when `execute` returns, INSERT … RETURNING included;
/// its rows are then still there to fetch. The rows of a SELECT are read as they are fetched: until
/// the last one is, or the cursor is closed, the statement keeps its snapshot of the database and
/// holds back checkpoints (https://www.sqlite.org/wal.html#avoiding_excessively_large_wal_files).
///
/// One statement per text; a text without any does nothing. The parameters must be as many as the
/// placeholders. Statements stay prepared with the connection and are found again by their text.
///
/// Thread safety: the connection's, whose mutex is held for each call: on the writer any member,
/// from any thread. Moving and destroying are for one thread alone.
/// Ownership: move-only; closes itself when destroyed; may outlive its connection, and then every
/// operation but `close` and destruction throws `ProgrammingError`.
/// Errors: `Error` with SQLite's message, of the type that `veldra/errors.h` names;
/// `ProgrammingError` for a mistake of the caller, such as using the connection from a function,
/// hook or trace callback that one of its statements runs. After an error no statement is open.
class VELDRA_EXPORT Cursor {
 public:
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;
  Cursor(Cursor&& other) noexcept;
  Cursor& operator=(Cursor&& other) noexcept;
  ~Cursor();

  void execute(std::string_view sql, const Params& params = {});

  /// Runs `sql` once per element, in order, and stops at the first that fails. What the runs
  /// before it did stays done.
  void executemany(std::string_view sql, const ParamsList& params_list);

  /// The next row, or nothing at the end and when there is no result.
  std::optional<Row> fetchone();
  std::vector<Row> fetchall();

  /// Rows changed by the last INSERT, UPDATE, DELETE or REPLACE, also behind a WITH; for
  /// `executemany` their sum. -1 for every other statement, for none, and before the first.
  std::int64_t rowcount() const;

  /// Gives the statement back. May be repeated. From within a call of the connection the statement
  /// ends before the connection's next one.
  void close() noexcept;

 private:
  friend class Connection;

  explicit Cursor(std::shared_ptr<ConnectionState> state, const QueryTerms& terms = {}) noexcept;

  /// Runs `operation` under the connection's mutex; after an error no statement is left open.
  template <typename Operation>
  auto _locked(Operation operation);

  // Callers of these hold the connection's mutex.
  void _check_open() const;
  void _prepare(std::string_view sql);
  void _run_to_end();
  std::optional<Row> _next();
  void _finish() noexcept;
  void _abandon() noexcept;

  // Its mutex guards every field below; none when moved from.
  std::shared_ptr<ConnectionState> _state;
  QueryTerms _terms;
  bool _closed = false;
  bool _running = false;            // within one of its calls, from which the host may call back
  Statement* _statement = nullptr;  // on loan; null when there are no rows left to read from it
  bool _on_row = false;             // the statement stands on a row not handed out yet
  std::vector<Row> _rows;           // the rows of a statement that writes, already run
  std::size_t _next_row = 0;
  std::int64_t _rowcount = -1;
};

}  // namespace veldra
