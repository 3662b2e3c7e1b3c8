// Queries: which connection serves one, and the fallback to the writer.
#include <utility>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/utils/ascii.h"

namespace veldra {

std::optional<Row> Database::fetchone(std::string_view sql, const Params& params) {
  return _query(sql, [&](Connection& connection) { return connection.fetchone(sql, params); });
}

std::vector<Row> Database::fetchall(std::string_view sql, const Params& params) {
  return _query(sql, [&](Connection& connection) { return connection.fetchall(sql, params); });
}

std::shared_ptr<ReaderPool> Database::_readers_to_ask() const {
  if (_tx_owner == std::this_thread::get_id()) return nullptr;  // it has to see its own writes
  return _readers.load();
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
