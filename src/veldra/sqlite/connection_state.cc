// Lending statements to cursors, and taking everything back when the connection closes.
#include "veldra/sqlite/connection_state.h"

#include <sqlite3.h>

#include <string>
#include <utility>

#include "veldra/errors.h"
#include "veldra/sqlite/limited_call.h"

namespace veldra {
namespace {

/// How often a statement is begun while other processes change the schema. SQLite begins it again
/// by itself as often (SQLITE_MAX_SCHEMA_RETRY in its source), but gives up at once where a
/// full-text table meets the change while it is opened: "vtable constructor failed".
constexpr int SCHEMA_TRIES = 50;

bool means_damage(int code) {
  switch (code & 0xff) {
    case SQLITE_IOERR:
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_CANTOPEN:
      return true;
    default:
      return false;
  }
}

int bind_value(sqlite3_stmt* statement, int position, const Value& value,
               sqlite3_destructor_type keeping) {
  switch (value.type()) {
    case StorageClass::Integer:
      return sqlite3_bind_int64(statement, position, value.as_integer());
    case StorageClass::Real:
      return sqlite3_bind_double(statement, position, value.as_real());
    case StorageClass::Text: {
      const std::string_view text = value.as_text();
      return sqlite3_bind_text64(statement, position, text.data(), text.size(), keeping,
                                 SQLITE_UTF8);
    }
    case StorageClass::Blob: {
      const auto blob = value.as_blob();
      // A null address would bind NULL (https://www.sqlite.org/c3ref/bind_blob.html).
      if (blob.empty()) return sqlite3_bind_zeroblob(statement, position, 0);
      return sqlite3_bind_blob64(statement, position, blob.data(), blob.size(), keeping);
    }
    case StorageClass::Null:
      break;
  }
  return sqlite3_bind_null(statement, position);
}

}  // namespace

ConnectionState::ConnectionState() = default;
ConnectionState::~ConnectionState() {
  close();
}

void ConnectionState::throw_reentered() {
  throw ProgrammingError(
      "the database is re-entered from a function, hook or trace callback that one of its own "
      "statements runs: let the statement end first");
}

void ConnectionState::throw_closed() {
  throw ProgrammingError("Cannot operate on a closed database.");
}

Statement* ConnectionState::lend(std::string_view sql) {
  if (owes_rollback) settle();
  if (scope == Scope::Lost) {
    throw_error(SQLITE_ABORT_ROLLBACK,
                "the transaction was rolled back by an earlier error: end its scope");
  }
  if (statements.any_abandoned()) statements.take_back_abandoned();
  if (owes_detach && sqlite3_get_autocommit(db) != 0) detach_attachment();
  if (Statement* const kept = statements.lend(sql)) return kept;
  try {
    std::unique_ptr<Statement> prepared = prepare(sql);
    altered = altered || (!is_shared && prepared && !prepared->reusable());
    return prepared ? statements.add(std::move(prepared)) : nullptr;
  } catch (const Error& error) {
    note_failure(error.code());
    throw;
  }
}

std::unique_ptr<Statement> ConnectionState::prepare(std::string_view sql) {
  for (int tries = 1;; ++tries) {
    try {
      return Statement::prepare(db, sql);
    } catch (const OperationalError& error) {
      if (error.code() != SQLITE_SCHEMA || tries == SCHEMA_TRIES) throw;
    }
  }
}

void ConnectionState::bind(Statement* statement, const Params& params, Binding binding) {
  const int placeholders = statement != nullptr ? statement->parameters() : 0;
  if (std::cmp_not_equal(params.size(), placeholders)) {
    throw ProgrammingError("the statement has " + std::to_string(placeholders) + " placeholders, " +
                           std::to_string(params.size()) + " parameters were given");
  }
  const auto keeping = binding == Binding::Borrowed ? SQLITE_STATIC : SQLITE_TRANSIENT;
  int position = 0;
  for (const Value& value : params) {
    const int code = bind_value(statement->get(), ++position, value, keeping);
    if (code != SQLITE_OK) fail(code);
  }
}

bool ConnectionState::step(Statement& statement) {
  if (limited != nullptr) limited->runs(statement.get());
  int code = sqlite3_step(statement.get());
  for (int tries = 1; code == SQLITE_SCHEMA && !statement.gave_row && tries < SCHEMA_TRIES;
       ++tries) {
    sqlite3_reset(statement.get());
    code = sqlite3_step(statement.get());
  }
  statement.gave_row = code == SQLITE_ROW;
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) fail(code);
  return false;
}

int ConnectionState::roll_back() noexcept {
  int code = SQLITE_OK;
  if (rollback) {
    code = sqlite3_step(rollback->get());
    rollback->reset();
  } else {  // no transaction of a scope, or a `close` that SQLite refused in the midst of one
    code = sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  owes_rollback = sqlite3_get_autocommit(db) == 0;
  scope = Scope::None;
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

void ConnectionState::settle() {
  const int code = roll_back();
  if (owes_rollback) fail(code);
}

void ConnectionState::detach_attachment() noexcept {
  sqlite3_exec(db, detach.c_str(), nullptr, nullptr, nullptr);
  owes_detach = sqlite3_db_filename(db, attachment.c_str()) != nullptr;
}

void ConnectionState::fail(int code) {
  note_failure(code);
  throw_error(code, sqlite3_errmsg(db));
}

void ConnectionState::note_failure(int code) {
  damaged = damaged || means_damage(code);
  if (scope == Scope::Open && sqlite3_get_autocommit(db) != 0) scope = Scope::Lost;
  if (limited != nullptr && limited->gave_up()) throw_error(SQLITE_INTERRUPT, "interrupted");
}

int ConnectionState::close() noexcept {
  if (db == nullptr) return SQLITE_OK;
  statements.finalize();
  rollback.reset();
  const int code = sqlite3_close(db);  // not _v2: a zombie would keep file, log and locks
  if (code == SQLITE_OK) db = nullptr;
  return code;
}

}  // namespace veldra
