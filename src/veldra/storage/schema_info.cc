// Reading what schema_info stores, and taking the write lock at the right moment.
#include "veldra/storage/schema_info.h"

#include <sqlite3.h>

#include "veldra/errors.h"

namespace veldra {

namespace {

int primary_code(const Error& error) {
  return error.code() & 0xff;  // the low byte of an extended code
}

/// False when SQLite refuses the statement itself: a table is missing, or there already.
bool try_execute(Cursor& cursor, std::string_view sql) {
  try {
    cursor.execute(sql);
    return true;
  } catch (const OperationalError& error) {
    if (primary_code(error) != SQLITE_ERROR) throw;
    return false;
  }
}

/// Takes the write lock and changes nothing; false when there is no `schema_info`.
bool touch_schema_info(Cursor& cursor) {
  return try_execute(cursor, "DELETE FROM schema_info WHERE 0");
}

}  // namespace

std::optional<std::string> stored_text(const ValueView& value) {
  switch (value.type()) {
    case StorageClass::Null:
      return std::nullopt;
    case StorageClass::Integer:
      return std::to_string(value.as_integer());
    case StorageClass::Real:
      return std::to_string(value.as_real());
    case StorageClass::Text:
      return std::string(value.as_text());
    case StorageClass::Blob:
      break;
  }
  const std::span<const std::byte> bytes = value.as_blob();
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void take_write_lock(Cursor& cursor) {
  if (touch_schema_info(cursor)) return;
  // Making the missing table takes the lock as well, unless another process was faster.
  if (!try_execute(cursor, SCHEMA_INFO_DDL)) touch_schema_info(cursor);
}

void look_then_write(const TransactionOpener& open_transaction,
                     const std::function<void(Cursor&)>& body) {
  try {
    open_transaction(body);
  } catch (const OperationalError& error) {
    if (primary_code(error) != SQLITE_BUSY) throw;
    open_transaction([&](Cursor& cursor) {
      if (!touch_schema_info(cursor)) {
        // Takes the lock as well, and leaves nothing by which `body` could take a new file for an
        // old one.
        cursor.execute("CREATE TABLE taking_the_write_lock (i)");
        cursor.execute("DROP TABLE taking_the_write_lock");
      }
      body(cursor);
    });
  }
}

}  // namespace veldra
