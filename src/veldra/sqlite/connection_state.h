#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "veldra/sqlite/statement.h"

struct sqlite3;

namespace veldra {

/// What a connection shares with its cursors, which may outlive it. Internal.
///
/// What `lock` returns guards every field and every call into SQLite on `db`; it is taken last,
/// inside whatever lock orders the uses of the connection.
struct ConnectionState {
  ConnectionState();
  ConnectionState(const ConnectionState&) = delete;
  ConnectionState& operator=(const ConnectionState&) = delete;
  ~ConnectionState();

  /// Lends the statement of `sql` to a cursor, prepared now or before; none for a text without any.
  std::unique_ptr<Statement> lend(std::string_view sql);
  void take_back(std::unique_ptr<Statement> statement) noexcept;

  /// Ends a transaction that an earlier rollback could not end for want of memory. Without this the
  /// writes that follow would be acknowledged inside it, and lost.
  void settle();

  /// Runs `rollback`; returns SQLite's code.
  int roll_back() noexcept;

  /// Throws the error of `code` with SQLite's message, and notes whether the connection is damaged.
  [[noreturn]] void fail(int code);

  /// Finishes every statement and closes the handle; the code says whether SQLite did.
  int close() noexcept;

  /// The mutex of a connection that threads share; nothing for one that is lent to one thread at a
  /// time, whose uses the lending orders: five locks a query would be 3 % of its instructions.
  [[nodiscard]] std::unique_lock<std::mutex> lock() {
    return is_shared ? std::unique_lock(mutex) : std::unique_lock<std::mutex>();
  }

  std::mutex mutex;
  bool is_shared = true;  // set once, before anyone else knows the connection
  sqlite3* db = nullptr;  // null once closed
  bool damaged = false;
  bool owes_rollback = false;
  StatementCache cache;
  std::unique_ptr<Statement> rollback;  // prepared ahead; none before the first transaction
  std::vector<Statement*> lent;  // to be finished when the connection closes under its cursors
};

}  // namespace veldra
