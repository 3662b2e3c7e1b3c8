#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "veldra/sqlite/cursor.h"

/// The table `schema_info`, what the file says about itself, and the write lock that is taken
/// through it. Internal.
namespace veldra {

inline constexpr std::string_view SCHEMA_INFO_DDL =
    "CREATE TABLE schema_info (key TEXT PRIMARY KEY NOT NULL, value TEXT)";

/// Runs a body inside a transaction of its own, as `Database::transaction` does.
using TransactionOpener = std::function<void(const std::function<void(Cursor&)>& body)>;

/// A stored value as text, whatever storage class it was given; none for NULL.
std::optional<std::string> stored_text(const ValueView& value);

/// Takes the file's write lock for the rest of the transaction and changes nothing, except that a
/// file without `schema_info` gets that table.
///
/// As the transaction's first statement it waits out another process's write under the busy
/// timeout; a transaction that has read already is refused at once instead
/// (https://www.sqlite.org/lang_transaction.html#read_transactions_versus_write_transactions), and
/// can write no more after another process has (https://www.sqlite.org/rescode.html#busy_snapshot).
void take_write_lock(Cursor& cursor);

/// Runs `body`, which reads first and then perhaps writes, in a transaction: without the write lock
/// while it only reads. When another process writes in between, SQLite refuses the write; `body` is
/// then run once more, with the lock taken first, so it must bear a second run.
void look_then_write(const TransactionOpener& open_transaction,
                     const std::function<void(Cursor&)>& body);

}  // namespace veldra
