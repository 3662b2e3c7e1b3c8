// Opening a connection with the settings that every one of the layer has, and closing it.
#include "veldra/sqlite/connection.h"

#include <sqlite3.h>

#include <utility>

#include "veldra/errors.h"
#include "veldra/sqlite/checkpoint.h"
#include "veldra/sqlite/connection_state.h"
#include "veldra/sqlite/query.h"

namespace veldra {
namespace {

/// A read connection is lent to one thread at a time, so SQLite needs no mutex of its own for it.
/// The cache is private even where the host shares its own: readers would meet a writer's locks
/// (https://www.sqlite.org/sharedcache.html#shared_cache_locking_model).
int open_flags(Connection::Mode mode) {
  switch (mode) {
    case Connection::Mode::ReadWrite:
      break;
    case Connection::Mode::ReadOnly:
      return SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    case Connection::Mode::Immutable:
      return SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE |
             SQLITE_OPEN_URI;
  }
  return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX |
         SQLITE_OPEN_PRIVATECACHE;
}

/// A URI in which every byte of `name` stands for itself
/// (https://www.sqlite.org/uri.html#the_uri_path).
std::string immutable_uri(std::string_view name) {
  static constexpr std::string_view DIGITS = "0123456789ABCDEF";
  std::string uri = "file:";
  for (const char byte : name) {
    const auto code = static_cast<unsigned char>(byte);
    uri += '%';
    uri += DIGITS[code / 16];
    uri += DIGITS[code % 16];
  }
  return uri + "?immutable=1";
}

/// SQLite initialises itself at its first use, and afterwards reads without a lock that it has:
/// between two threads that open their first connections at once ThreadSanitizer sees a race.
void initialize_sqlite() {
  static const bool done = [] {
    if (const int code = sqlite3_initialize(); code != SQLITE_OK)
      throw_error(code, sqlite3_errstr(code));
    return true;
  }();
  (void)done;
}

}  // namespace

std::string plain_file_name(const std::filesystem::path& path) {
  std::string name = path.string();
  if (name.find('\0') != std::string::npos)
    throw ProgrammingError("a file name cannot hold a NUL character");
  if (name == ":memory:" || path.is_absolute()) return name;
  return "./" + name;
}

Connection::Connection(const std::filesystem::path& path, Mode mode)
    : _state(std::make_shared<ConnectionState>()) {
  initialize_sqlite();
  sqlite3*& db = _state->db;
  _state->is_shared = mode == Mode::ReadWrite;
  std::string name = plain_file_name(path);
  if (mode == Mode::Immutable) name = immutable_uri(name);
  const int opened = sqlite3_open_v2(name.c_str(), &db, open_flags(mode), nullptr);
  try {
    if (opened != SQLITE_OK) {
      if (db == nullptr) throw_error(opened, sqlite3_errstr(opened));
      throw_error(sqlite3_extended_errcode(db), sqlite3_errmsg(db));
    }
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_timeout(db, static_cast<int>(BUSY_TIMEOUT.count()));
    if (mode == Mode::ReadWrite) checkpoint_guarded_after_commits(db);
  } catch (...) {
    _state->close();
    throw;
  }
}

Connection::~Connection() {
  if (_state->is_inside()) return;  // what is left of it closes it
  const auto guard = _state->lock_or_join();
  _state->close();
}

Cursor Connection::cursor() {
  const auto guard = _state->lock();
  _state->require_open();
  return Cursor(_state);
}

Cursor Connection::execute(std::string_view sql, const Params& params) {
  Cursor result(_state);
  result.execute(sql, params);
  return result;
}

Cursor Connection::executemany(std::string_view sql, const ParamsList& params_list) {
  Cursor result(_state);
  result.executemany(sql, params_list);
  return result;
}

std::optional<Row> Connection::fetchone(std::string_view sql, const Params& params) {
  return fetchone(sql, params, {});
}

std::vector<Row> Connection::fetchall(std::string_view sql, const Params& params) {
  return fetchall(sql, params, {});
}

std::optional<Row> Connection::fetchone(std::string_view sql, const Params& params,
                                        const QueryTerms& terms) {
  Query query(*_state, sql, params, terms);
  std::optional<Row> first = query.next();
  if (!query.only_reads() && first) {
    while (query.next()) {
    }
  }
  return first;
}

std::vector<Row> Connection::fetchall(std::string_view sql, const Params& params,
                                      const QueryTerms& terms) {
  Query query(*_state, sql, params, terms);
  std::vector<Row> rows;
  while (std::optional<Row> row = query.next()) rows.push_back(*std::move(row));
  return rows;
}

void Connection::fetcheach(std::string_view sql, const Params& params,
                           const std::function<bool(const Row&)>& visit, const QueryTerms& terms) {
  const auto show_from = [&](auto next) {
    while (const std::optional<Row> row = next())
      if (!visit(*row)) return;
  };
  if (_state->is_shared) {
    Cursor cursor(_state, terms);
    cursor.execute(sql, params);
    show_from([&] { return cursor.fetchone(); });
  } else {  // on loan to this thread: the limits need no room between the rows
    Query query(*_state, sql, params, terms);
    show_from([&] { return query.next(); });
  }
}

void Connection::close() {
  const auto guard = _state->lock();
  const int code = _state->close();
  if (code != SQLITE_OK) _state->fail(code);
}

void Connection::release_memory() noexcept {
  const auto guard = _state->lock_or_join();
  if (_state->db != nullptr) sqlite3_db_release_memory(_state->db);
}

void Connection::set_busy_timeout(std::chrono::milliseconds timeout) noexcept {
  const auto guard = _state->lock_or_join();
  if (_state->db != nullptr) sqlite3_busy_timeout(_state->db, static_cast<int>(timeout.count()));
}

void Connection::begin() {
  {
    const auto guard = _state->lock();
    _state->require_open();
    _state->rollback = Statement::prepare(_state->db, "ROLLBACK");
  }
  fetchone("BEGIN");
  const auto guard = _state->lock();
  _state->scope = ConnectionState::Scope::Open;
}

void Connection::commit() {
  fetchone("COMMIT");
  const auto guard = _state->lock();
  _state->scope = ConnectionState::Scope::None;
}

void Connection::roll_back() noexcept {
  const auto guard = _state->lock_or_join();
  if (_state->db == nullptr) return;
  if (_state->is_shared && !guard.owns_lock())
    _state->owes_rollback = true;
  else
    _state->roll_back();
}

void Connection::refuse_reentry() const {
  _state->refuse_reentry();
}

void Connection::attach(const std::filesystem::path& path, const std::string& schema) {
  const std::string detach = "DETACH DATABASE " + schema;
  {
    const auto guard = _state->lock();
    _state->attachment = schema;
    _state->detach = detach;
  }
  if (fetchone("SELECT 1 FROM pragma_database_list WHERE name = ?", {schema})) execute(detach);
  execute("ATTACH DATABASE ? AS " + schema, {plain_file_name(path)});
}

void Connection::detach() noexcept {
  const auto guard = _state->lock_or_join();
  if (_state->db != nullptr) _state->detach_attachment();
}

int Connection::configure(int option, int value) noexcept {
  const auto guard = _state->lock_or_join();
  int before = 0;
  if (_state->db != nullptr) {
    sqlite3_db_config(_state->db, option, -1, &before);
    if (value >= 0) sqlite3_db_config(_state->db, option, value, nullptr);
  }
  return before;
}

bool Connection::damaged() const noexcept {
  const auto guard = _state->lock_or_join();
  return _state->damaged || _state->altered || _state->owes_rollback;
}

std::string Connection::held_statement() const {
  const auto guard = _state->lock();
  if (_state->db == nullptr) return "";
  if (const Statement* const lent = _state->statements.running()) return std::string(lent->sql());
  // One of the host's own, on the handle.
  for (sqlite3_stmt* it = nullptr; (it = sqlite3_next_stmt(_state->db, it)) != nullptr;)
    if (sqlite3_stmt_busy(it) != 0) return sqlite3_sql(it);
  return "";
}

sqlite3* Connection::handle() const noexcept {
  const auto guard = _state->lock_or_join();
  return _state->db;
}

}  // namespace veldra
