#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/sqlite/row.h"

struct sqlite3;
struct sqlite3_stmt;

namespace veldra {

/// One prepared statement and what is known of it. Internal; the connection's mutex guards it.
class Statement {
 public:
  /// Prepares the one statement of `sql`; returns none for a text without any.
  /// Throws `Error` of SQLite, `ProgrammingError` for a second statement or a NUL byte.
  static std::unique_ptr<Statement> prepare(sqlite3* db, std::string_view sql);

  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement();

  sqlite3_stmt* get() const noexcept { return _statement; }
  std::string_view sql() const noexcept { return _sql; }
  int parameters() const noexcept { return _parameters; }

  /// True when SQLite says that it writes nothing itself
  /// (https://www.sqlite.org/c3ref/stmt_readonly.html).
  bool only_reads() const noexcept { return _only_reads; }

  /// True for what reads and neither begins nor ends a transaction, nor attaches a file.
  bool is_query() const noexcept { return _is_query; }

  /// True for INSERT, UPDATE, DELETE and REPLACE, also behind a WITH.
  bool counts_changes() const noexcept { return _counts_changes; }

  /// The names as they are after the last step: SQLite prepares a statement again by itself when
  /// the schema has changed, and its columns may then be others.
  const std::shared_ptr<const ColumnNames>& column_names();

  /// False for the pragmas that SQLite carries out while it prepares them: run a second time they
  /// would do nothing (https://www.sqlite.org/pragma.html#pragma_compilation).
  bool reusable() const noexcept { return _reusable; }

  /// Makes it ready for its next run, with no parameter bound.
  void reset() noexcept;

  /// Ends it early, because its connection closes.
  void finalize() noexcept;

  bool gave_row = false;  ///< in its last step

 private:
  Statement(sqlite3_stmt* statement, std::string_view sql);

  sqlite3_stmt* _statement;
  std::string _sql;
  int _parameters;
  bool _only_reads;
  bool _is_query;
  bool _counts_changes;
  bool _reusable;
  std::shared_ptr<const ColumnNames> _names;
  int _names_of_preparation = -1;  // how often SQLite had prepared it again when `_names` were read
};

/// The prepared statements of a connection, found by their text and lent to one cursor at a time.
/// Beyond `CAPACITY` the least recently used that is not lent goes. Internal; the connection's
/// mutex guards it.
class StatementCache {
 public:
  static constexpr std::size_t CAPACITY = 64;

  /// Lends the statement of this text; null when there is none, or when each is lent already.
  Statement* lend(std::string_view sql) noexcept;

  /// Keeps a new statement, and lends it.
  Statement* add(std::unique_ptr<Statement> statement);

  /// The first that stands on a row; null when none does.
  const Statement* running() const noexcept;

  /// Keeps a statement for its next use, reset; one that is not reusable ends here.
  void take_back(Statement* statement) noexcept;

  /// Notes that nobody will give a statement back, where that cannot be done yet.
  void abandon(const Statement* statement) noexcept;
  bool any_abandoned() const noexcept { return _any_abandoned; }
  void take_back_abandoned() noexcept;

  /// Finishes every statement, because the connection closes; who has one on loan still gives it
  /// back.
  void finalize() noexcept;

 private:
  struct Kept {
    std::size_t length;  // compared before the text: no key is built and few texts are touched
    std::unique_ptr<Statement> statement;
    bool lent;
    bool abandoned = false;  // lent, but nobody has it any more
  };

  std::vector<Kept>::iterator _find(const Statement* statement) noexcept;

  std::vector<Kept> _kept;  // the most recently lent last
  bool _any_abandoned = false;
};

/// Throws `OperationalError` "attempt to write a readonly database" for a statement that is no
/// query; null, for a text without any, is none that changes something.
void require_query(const Statement* statement);

/// The text after white space, semicolons and comments; "" when nothing else is there.
std::string_view skip_blank_sql(std::string_view sql) noexcept;

}  // namespace veldra
