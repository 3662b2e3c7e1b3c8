// Queries: which connection serves one, and the fallback to the writer.
#include <sqlite3.h>

#include <utility>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/utils/ascii.h"

namespace veldra {

template <typename Fetch>
auto Database::_query(std::string_view sql, const Params& params, Fetch fetch) {
  bool may_write = false;
  if (const std::shared_ptr<ReaderPool> readers = _readers_for(sql)) {
    try {
      const ReaderPool::Lease reader = readers->lease();
      return _run_query(*reader, sql, params, fetch);
    } catch (const ReaderUnavailable&) {
      // The writer connection serves it, below.
    } catch (const OperationalError& error) {
      if (!_reader_cannot_serve(error)) throw;
      may_write = error.code() == SQLITE_READONLY;  // a WITH that writes
    }
  } else {
    may_write = !_is_read_statement(sql);
  }
  const std::lock_guard guard(_lock);
  return _run_query(may_write ? *_writer_in_place() : *connection(), sql, params, fetch);
}

std::optional<Row> Database::fetchone(std::string_view sql, const Params& params) {
  return _query(sql, params, &Connection::fetchone);
}

std::vector<Row> Database::fetchall(std::string_view sql, const Params& params) {
  return _query(sql, params, &Connection::fetchall);
}

std::shared_ptr<ReaderPool> Database::_readers_for(std::string_view sql) const {
  std::shared_ptr<ReaderPool> readers = _readers.load();
  if (!readers) return nullptr;
  if (_tx_owner == std::this_thread::get_id()) return nullptr;  // it has to see its own writes
  if (!_is_read_statement(sql)) return nullptr;
  return readers;
}

std::int64_t Database::_count(std::string_view sql) {
  const std::optional<Row> row = fetchone(sql);
  return row ? (*row)[0].as_integer() : 0;
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
  for (const std::string_view phrase : _READER_CANNOT_SERVE) {
    if (message.find(phrase) != std::string::npos) return true;
  }
  return false;
}

}  // namespace veldra
