// Queries: which connection serves one, and the fallback to the writer.
#include <sqlite3.h>

#include <utility>

#include "veldra/platform/coarse_clock.h"
#include "veldra/sqlite/query_terms.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/utils/ascii.h"

namespace veldra {
namespace {

template <typename Fetch>
auto limited(Fetch fetch, const Asking& asking) {
  return [&asking, fetch](Connection& connection, std::string_view sql, const Params& params) {
    return fetch(connection, sql, params, QueryTerms{.deadline = &asking.deadline});
  };
}

}  // namespace

template <typename Fetch>
auto Database::_query(std::string_view sql, const Params& params, Fetch fetch,
                      const Asking& asking) {
  bool may_write = false;
  if (const std::shared_ptr<ReaderPool> readers = _readers_for(sql)) {
    try {
      const ReaderPool::Lease reader = readers->lease(_patience(), sql, asking.deadline);
      return _run_query(*reader, sql, params, fetch);
    } catch (const ReaderUnavailable&) {
      if (asking.row_shown) throw;
      // The writer connection serves it, below.
    } catch (const OperationalError& error) {
      if (asking.row_shown || !_reader_cannot_serve(error)) throw;
      may_write = error.code() == SQLITE_READONLY;  // a WITH that writes
    }
  } else {
    may_write = !_is_read_statement(sql);
  }
  const Holding holding(*this, sql, asking.deadline);
  return _run_query(may_write ? *_writer_in_place() : *connection(), sql, params, fetch);
}

std::optional<Row> Database::fetchone(std::string_view sql, const Params& params) {
  return _query(sql, params, _fetch_one, {});
}

std::vector<Row> Database::fetchall(std::string_view sql, const Params& params) {
  return _query(sql, params, _fetch_all, {});
}

std::optional<Row> Database::fetchone(std::string_view sql, const Params& params,
                                      const Limits& limits) {
  const Asking asking{.deadline = _deadline(limits)};
  return _query(sql, params, limited(_fetch_one, asking), asking);
}

std::vector<Row> Database::fetchall(std::string_view sql, const Params& params,
                                    const Limits& limits) {
  const Asking asking{.deadline = _deadline(limits)};
  return _query(sql, params, limited(_fetch_all, asking), asking);
}

void Database::fetcheach(std::string_view sql, const Params& params,
                         const std::function<bool(const Row&)>& visit, const Limits& limits) {
  Asking asking{.deadline = _deadline(limits)};
  const auto show = [&](const Row& row) {
    asking.row_shown = true;
    return visit(row);
  };
  const auto fetch = [&](Connection& connection, std::string_view text, const Params& values) {
    const CallersCode inside(*this);
    connection.fetcheach(text, values, show, {.deadline = &asking.deadline});
  };
  _query(sql, params, fetch, asking);
}

Deadline Database::_deadline(const Limits& limits) const {
  Deadline deadline(limits.timeout, limits.stop);
  if (deadline.is_set() && deadline.reached(coarse_now())) {
    (void)connection();  // that the database is not open comes first
    throw QueryInterrupted();
  }
  return deadline;
}

std::shared_ptr<ReaderPool> Database::_readers_for(std::string_view sql) const {
  std::shared_ptr<ReaderPool> readers = _readers_for_this_thread();
  if (readers && !_is_read_statement(sql)) return nullptr;
  return readers;
}

std::shared_ptr<ReaderPool> Database::_readers_for_this_thread() const {
  std::shared_ptr<ReaderPool> readers = _readers.load();
  if (!readers) return nullptr;
  if (_tx_owner == std::this_thread::get_id()) return nullptr;  // it has to see its own writes
  return readers;
}

std::chrono::milliseconds Database::_patience() const noexcept {
  using namespace std::chrono_literals;
  return CallersCode::runs_here(*this) ? 0s : 5s;
}

std::int64_t Database::_count(std::string_view sql) {
  const std::optional<Row> row = fetchone(sql);
  return row ? (*row)[0].as_integer() : 0;
}

Database::Holding::Holding(Database& db, std::string_view purpose, const Deadline& deadline)
    : _lock(db._lock) {
  if (const std::shared_ptr<Connection> writer = db._connection.load()) writer->refuse_reentry();
  if (purpose.empty()) purpose = "a statement without text";  // "" is what a free lock shows
  if (!_lock.lock(purpose, deadline)) throw QueryInterrupted();
}

thread_local const CallersCode* CallersCode::_innermost = nullptr;

bool CallersCode::runs_here(const Database& db) noexcept {
  const CallersCode* each = _innermost;
  while (each != nullptr && &each->_db != &db) each = each->_outer;
  return each != nullptr;
}

void CallersCode::refuse(const Database& db, std::string_view what) {
  if (!runs_here(db)) return;
  throw ProgrammingError(std::string(what) +
                         " was called from within a query's visit or a snapshot's body of the same "
                         "thread: return from it first");
}

bool _is_read_statement(std::string_view sql) {
  const std::string_view head = trim_left(sql);
  if (begins_ignoring_case(head, "select") || begins_ignoring_case(head, "with")) return true;
  std::string_view whole = trim(sql);
  while (whole.ends_with(';')) whole.remove_suffix(1);
  return equal_ignoring_case(trim(whole), "PRAGMA USER_VERSION");  // every process polls it
}

bool _reader_cannot_serve(const OperationalError& error) {
  const std::string message = lower_case(error.what());
  for (const std::string_view phrase : _READER_CANNOT_SERVE)
    if (message.find(phrase) != std::string::npos) return true;
  return false;
}

}  // namespace veldra
