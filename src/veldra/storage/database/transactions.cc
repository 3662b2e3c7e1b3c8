// Transaction scopes and single writes, all under the connection lock.
#include <cassert>
#include <utility>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"

namespace veldra {

void Database::transaction(const std::function<void(Cursor&)>& body) {
  const Holding holding(*this, "transaction");
  if (_tx_depth > 0)
    _nested_scope(body);
  else
    _outermost_scope(body);
}

void Database::_nested_scope(const std::function<void(Cursor&)>& body) {
  assert(_lock.held_by_this_thread());
  struct Depth {
    int& depth;
    explicit Depth(int& open_scopes) : depth(open_scopes) { ++depth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;
    ~Depth() { --depth; }
  };
  std::optional<Cursor> cursor;  // outlives `depth`: the count goes down first
  const Depth depth(_tx_depth);
  cursor = connection()->cursor();
  body(*cursor);
}

void Database::_outermost_scope(const std::function<void(Cursor&)>& body) {
  assert(_lock.held_by_this_thread());
  // Before anything is changed: it throws when the database is not open, or its file is gone.
  const std::shared_ptr<Connection> writer = _writer_in_place();
  Cursor cursor = writer->cursor();
  struct Ended {
    Database& db;
    ~Ended() {
      db._tx_depth = 0;
      db._tx_owner = std::thread::id();
    }
  } const ended{*this};
  try {
    _tx_depth = 1;
    _tx_owner = std::this_thread::get_id();
    writer->begin();  // not on the body's cursor, which it may close or move away
    body(cursor);
    writer->commit();
  } catch (...) {
    writer->roll_back();  // its own error must not hide the one being handled
    throw;
  }
}

Cursor Database::execute(std::string_view sql, const Params& params) {
  const Holding holding(*this, sql);
  return _writer_in_place()->execute(sql, params);
}

Cursor Database::executemany(std::string_view sql, const ParamsList& params_list) {
  const Holding holding(*this, sql);
  return _writer_in_place()->executemany(sql, params_list);
}

}  // namespace veldra
