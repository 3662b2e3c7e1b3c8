// The one-time rewrite of a file to larger pages: out of WAL mode, VACUUM, and back.
#include "veldra/storage/storage_size.h"

#include <sqlite3.h>

#include <chrono>
#include <string_view>

#include "veldra/errors.h"
#include "veldra/sqlite/checkpoint.h"
#include "veldra/sqlite/pragma.h"
#include "veldra/sqlite/row.h"
#include "veldra/storage/journal_mode.h"
#include "veldra/storage/schema_info.h"
#include "veldra/utils/ascii.h"

namespace veldra {

namespace {

constexpr std::string_view FILE_IN_USE = "another connection has the file open";

/// One rewrite: the connection and the statement it is at, for the record of a failure.
class PageRewrite {
 public:
  explicit PageRewrite(Connection& connection) : _connection(connection) {}

  const std::string& statement() const { return _statement; }

  /// Why the file keeps its pages; none when it has new ones.
  std::optional<std::string> run() {
    try {
      return _leave_wal() ? _vacuum() : std::string(FILE_IN_USE);
    } catch (const OperationalError& error) {
      if ((error.code() & 0xff) != SQLITE_BUSY) throw;
      return std::string(FILE_IN_USE);
    }
  }

  /// What is wrong with the journal; none when it is in WAL mode.
  std::optional<std::string> return_to_wal() {
    std::string why;
    try {
      const std::string mode = enter_wal_mode(_connection);
      if (mode == "wal") return std::nullopt;
      why = "SQLite kept the mode " + mode;
    } catch (const Error& error) {
      why = error.what();
    }
    return "the journal stays in rollback mode until the next open, queries wait for writes (" +
           why + ")";
  }

 private:
  bool _leave_wal() {
    // Leaving WAL mode deletes the log. With nothing left in it, a failure to delete it is
    // harmless: a stale log would be replayed over the new pages.
    _statement = "PRAGMA wal_checkpoint(TRUNCATE)";
    return empty_log(_connection) && lower_case(_value("PRAGMA journal_mode=DELETE")) == "delete";
  }

  std::optional<std::string> _vacuum() {
    // A connection that asked for auto-vacuum once would have VACUUM change the mode.
    _value("PRAGMA auto_vacuum=" + _value("PRAGMA auto_vacuum"));
    _value("PRAGMA page_size=" + std::to_string(PAGE_SIZE));
    _value("VACUUM");
    const std::string page_size = _value("PRAGMA page_size");
    return page_size == std::to_string(PAGE_SIZE)
               ? std::nullopt
               : std::optional("SQLite left them at " + page_size + " bytes");
  }

  /// Runs one statement to its end; the first column of its first row, or an empty text.
  std::string _value(const std::string& sql) {
    _statement = sql;
    const std::vector<Row> rows = _connection.execute(sql).fetchall();
    return rows.empty() ? "" : stored_text(rows.front()[0]).value_or("");
  }

  Connection& _connection;
  std::string _statement;
};

std::string left_undone(const std::filesystem::path& db_path,
                        const std::optional<std::string>& reason,
                        const std::optional<std::string>& journal) {
  std::string text =
      "Rewriting " + db_path.string() + " with pages of " + std::to_string(PAGE_SIZE) + " bytes: ";
  if (reason) text.append("not done, ").append(*reason);
  if (journal) text.append(reason ? "; " : "done, but ").append(*journal);
  return text;
}

}  // namespace

PageRewriteOutcome rewrite_pages(Connection& connection, const std::filesystem::path& db_path,
                                 const std::optional<std::string>& why_not) {
  PageRewriteOutcome outcome;
  std::optional<std::string> reason = why_not;
  std::optional<std::string> journal;
  if (!reason) {
    // Nobody is kept waiting for a file that others use: the next open tries again.
    const ScopedBusyTimeout short_patience(connection, std::chrono::milliseconds(250));
    // In rollback mode NORMAL could lose the file with the power
    // (https://www.sqlite.org/pragma.html#pragma_synchronous).
    const ScopedPragma durable(connection, "synchronous", "FULL");
    PageRewrite rewrite(connection);
    try {
      reason = rewrite.run();
    } catch (const std::exception&) {
      outcome.failure = std::current_exception();
      outcome.statement = rewrite.statement();
      reason = "a statement failed";
    }
    journal = rewrite.return_to_wal();
  }
  if (reason || journal) outcome.left_undone = left_undone(db_path, reason, journal);
  return outcome;
}

}  // namespace veldra
