#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "veldra/sqlite/statement.h"
#include "veldra/sqlite/value.h"

struct sqlite3;

namespace veldra {

class LimitedCall;

/// Whether SQLite copies the parameters, or may rely on them until the statement is given back.
enum class Binding { Copied, Borrowed };

/// A mutex that knows whether the calling thread holds it. Internal.
class CallMutex {
 public:
  void lock() {
    _mutex.lock();
    _holder.store(std::this_thread::get_id(), std::memory_order_relaxed);
  }
  void unlock() {
    _holder.store({}, std::memory_order_relaxed);
    _mutex.unlock();
  }
  bool held_by_this_thread() const noexcept {
    return _holder.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

 private:
  std::mutex _mutex;
  std::atomic<std::thread::id> _holder;  // only a thread itself can store its id
};

/// What a connection shares with its cursors, which may outlive it. Internal.
///
/// What `lock` returns guards every field and every call into SQLite on `db`; it is taken last,
/// inside whatever lock orders the uses of the connection. SQLite calls functions, hooks and trace
/// callbacks of the host from within such a call: they can begin no other.
struct ConnectionState {
  ConnectionState();
  ConnectionState(const ConnectionState&) = delete;
  ConnectionState& operator=(const ConnectionState&) = delete;
  ~ConnectionState();

  /// Lends the statement of `sql` to a cursor, which gives it back to `statements`; prepared now or
  /// before, null for a text without any.
  Statement* lend(std::string_view sql);

  std::unique_ptr<Statement> prepare(std::string_view sql);

  /// Binds as many parameters as the statement has placeholders; null, for no statement, has none.
  void bind(Statement* statement, const Params& params, Binding binding);

  /// Steps; true when the statement stands on a row.
  bool step(Statement& statement);

  /// Ends a transaction that an earlier rollback could not end for want of memory. Without this the
  /// writes that follow would be acknowledged inside it, and lost.
  void settle();

  /// Runs `rollback`; returns SQLite's code.
  int roll_back() noexcept;

  /// Runs `detach`, or has it owed.
  void detach_attachment() noexcept;

  /// Throws the error of `code` with SQLite's message, after `note_failure`.
  [[noreturn]] void fail(int code);

  /// Notes whether the connection is damaged now, and whether a transaction is lost. Throws
  /// `QueryInterrupted` where it was a limit that made SQLite give up.
  void note_failure(int code);

  /// Finishes every statement and closes the handle; the code says whether SQLite did. The
  /// destructor does so for a connection that was destroyed from within a call.
  int close() noexcept;

  /// The mutex of a connection that threads share; nothing for one that is lent to one thread at a
  /// time, whose uses the lending orders: five locks a query would be 3 % of its instructions.
  ///
  /// Throws `ProgrammingError` when the calling thread is inside a call of the connection.
  [[nodiscard]] std::unique_lock<CallMutex> lock() {
    if (!is_shared) return {};
    refuse_reentry();
    return std::unique_lock(mutex);
  }

  /// The same for what must not fail: nothing is locked where the calling thread holds it already.
  [[nodiscard]] std::unique_lock<CallMutex> lock_or_join() noexcept {
    return is_shared && !is_inside() ? std::unique_lock(mutex) : std::unique_lock<CallMutex>();
  }

  /// True within a call of a connection that threads share.
  bool is_inside() const noexcept { return mutex.held_by_this_thread(); }
  void refuse_reentry() const {
    if (is_inside()) throw_reentered();
  }
  [[noreturn]] static void throw_reentered();

  /// Throws `ProgrammingError` once the connection is closed.
  void require_open() const {
    if (db == nullptr) throw_closed();
  }
  [[noreturn]] static void throw_closed();

  /// The transaction of a scope. SQLite rolls one back by itself after some errors
  /// (https://www.sqlite.org/lang_transaction.html#response_to_errors_within_a_transaction), and
  /// would run what follows in autocommit: what follows is refused until the scope ends.
  enum class Scope { None, Open, Lost };

  CallMutex mutex;
  bool is_shared = true;  // set once, before anyone else knows the connection
  sqlite3* db = nullptr;  // null once closed
  bool damaged = false;
  bool altered = false;  // on loan, and a pragma may have changed its settings
  bool owes_rollback = false;
  bool owes_detach = false;
  StatementCache statements;
  std::unique_ptr<Statement> rollback;  // prepared ahead; none before the first transaction
  Scope scope = Scope::None;
  LimitedCall* limited = nullptr;  // of the call that is running, if it has limits
  std::string attachment;          // the schema name of the attached file
  std::string detach;              // the statement that detaches it
};

}  // namespace veldra
