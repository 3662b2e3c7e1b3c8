#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "veldra/export.h"
#include "veldra/sqlite/query_terms.h"
#include "veldra/sqlite/row.h"
#include "veldra/sqlite/value.h"

namespace veldra {

class Connection;
class Deadline;

/// Queries that all see one committed state, and which state that is.
///
///     db.snapshot([&](Snapshot& state) {
///       report.generation = state.index_generation();
///       report.files = (*state.fetchone("SELECT count(*) FROM files"))[0].as_integer();
///       state.fetcheach("SELECT name FROM symbols", {}, [&](const Row& row) {
///         report.names.emplace_back(row["name"].as_text());
///         return true;
///       });
///     });
///
/// It is one read transaction on one read connection, and no lock is held: commits, swaps and
/// migrations go on and are not seen. Meanwhile the log cannot start anew and grows with what is
/// written (https://www.sqlite.org/wal.html#avoiding_excessively_large_wal_files);
/// `Database::activity` shows who holds it. Where there is no read connection to lend, and inside
/// the thread's own transaction, it is a transaction on the writer instead, and sees that one's
/// writes.
///
/// Thread safety: for the thread that runs the body. Ownership: lives for the body; neither copied
/// nor moved.
/// Errors: those of `Database::fetchone`; an error in one query does not end the snapshot, unless
/// SQLite had to roll it back (out of memory, an I/O error): every further query then throws
/// `OperationalError`, rather than show another state. `OperationalError` "attempt to write a
/// readonly database" for each statement that is not read-only for SQLite, and for BEGIN, COMMIT,
/// END, ROLLBACK, SAVEPOINT, RELEASE, ATTACH and DETACH. `QueryInterrupted` once a limit that was
/// given to `Database::snapshot` is reached.
class VELDRA_EXPORT Snapshot {
 public:
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;
  ~Snapshot() = default;

  /// The generation of the index that the rows belong to.
  std::int64_t index_generation() const noexcept { return _generation; }

  std::optional<Row> fetchone(std::string_view sql, const Params& params = {});
  std::vector<Row> fetchall(std::string_view sql, const Params& params = {});

  /// As `Database::fetcheach`; `visit` may ask the snapshot as well.
  void fetcheach(std::string_view sql, const Params& params,
                 const std::function<bool(const Row&)>& visit);

 private:
  friend class Database;

  /// `connection` is inside a transaction; `tell` is told of each statement before it runs.
  Snapshot(Connection& connection, const Deadline& deadline,
           std::function<void(std::string_view)> tell);

  Connection& _connection;
  const QueryTerms _terms;
  const std::function<void(std::string_view)> _tell;
  const std::int64_t _generation;
};

}  // namespace veldra
