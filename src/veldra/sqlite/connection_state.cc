// Lending statements to cursors, and taking everything back when the connection closes.
#include "veldra/sqlite/connection_state.h"

#include <sqlite3.h>

#include <algorithm>

#include "veldra/errors.h"

namespace veldra {
namespace {

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

}  // namespace

ConnectionState::ConnectionState() = default;
ConnectionState::~ConnectionState() = default;

std::unique_ptr<Statement> ConnectionState::lend(std::string_view sql) {
  if (owes_rollback) settle();
  lent.reserve(lent.size() + 1);  // so that noting the loan below cannot fail
  std::unique_ptr<Statement> statement = cache.take(sql);
  if (!statement) {
    try {
      statement = Statement::prepare(db, sql);
    } catch (const Error& error) {
      damaged = damaged || means_damage(error.code());
      throw;
    }
  }
  if (statement) lent.push_back(statement.get());
  return statement;
}

void ConnectionState::take_back(std::unique_ptr<Statement> statement) noexcept {
  const auto loan = std::find(lent.rbegin(), lent.rend(), statement.get());
  *loan = lent.back();
  lent.pop_back();
  const bool ended = statement->get() == nullptr;  // by a close that SQLite then refused
  if (db != nullptr && !ended) cache.park(std::move(statement));
}

int ConnectionState::roll_back() noexcept {
  int code = SQLITE_MISUSE;
  if (rollback) {
    code = sqlite3_step(rollback->get());
    rollback->reset();
  }
  owes_rollback = sqlite3_get_autocommit(db) == 0;
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

void ConnectionState::settle() {
  if (!rollback) rollback = Statement::prepare(db, "ROLLBACK");
  const int code = roll_back();
  if (owes_rollback) fail(code);
}

void ConnectionState::fail(int code) {
  damaged = damaged || means_damage(code);
  throw_error(code, sqlite3_errmsg(db));
}

int ConnectionState::close() noexcept {
  if (db == nullptr) return SQLITE_OK;
  for (Statement* statement : lent) statement->finalize();
  cache.clear();
  rollback.reset();
  const int code = sqlite3_close(db);  // not _v2: a zombie would keep file, log and locks
  if (code == SQLITE_OK) db = nullptr;
  return code;
}

}  // namespace veldra
