#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "veldra/sqlite/connection.h"
#include "veldra/sync/wait_line.h"

namespace veldra {

/// A bounded set of read-only connections to one database file, lent to one query at a time.
///
///     const ReaderPool::Lease reader = pool.lease();
///     std::optional<Row> row = reader->execute("SELECT path FROM files").fetchone();
///
/// A connection is opened when it is first needed and kept until `close()`. The one that came back
/// last goes out first, so a lightly loaded process keeps few open.
///
/// Thread safety: any member, from any thread, at any time. `_mutex` guards every field below it
/// and is never held while a connection is opened, configured, used or closed.
/// Ownership: the pool owns its connections; a `Lease` borrows one and must not outlive the pool.
/// Errors: `ReaderUnavailable` means "ask the writer connection", never "the file is damaged"; an
/// `Error` of SQLite passes through unchanged.
class ReaderPool {
 public:
  /// Prepares a connection for its queries, once, before anyone can lease it.
  using Configure = std::function<void(Connection&)>;

  /// One connection on loan; gives it back when destroyed. Moved, never copied.
  class [[nodiscard]] Lease {
   public:
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    Lease(Lease&&) noexcept = default;
    Lease& operator=(Lease&&) = delete;
    ~Lease();

    Connection& operator*() const noexcept { return *_connection; }
    Connection* operator->() const noexcept { return _connection.get(); }

   private:
    friend class ReaderPool;
    Lease(ReaderPool& pool, std::unique_ptr<Connection> connection) noexcept;

    ReaderPool* _pool;
    std::unique_ptr<Connection> _connection;  // none when moved from
  };

  /// Opens nothing yet. `count`, 1 or more, is how many connections may be open at once.
  ReaderPool(std::filesystem::path path, int count, Configure configure);
  ReaderPool(const ReaderPool&) = delete;
  ReaderPool& operator=(const ReaderPool&) = delete;
  ~ReaderPool() = default;

  /// Lends an idle connection, or opens one while fewer than `count` are open.
  ///
  /// Waits up to `patience` for a loan to come back; who came first is served first. Throws
  /// `ReaderUnavailable` after that, and at once when the pool is closed, also to threads already
  /// waiting; throws `Error` when a new connection cannot be opened or configured, and its place is
  /// free again.
  Lease lease(std::chrono::milliseconds patience = std::chrono::seconds(5));

  /// Refuses new loans, waits for those that are out, then closes every connection.
  ///
  /// May be repeated. A thread that holds a lease must not call it: it would wait for itself.
  void close();

 private:
  std::unique_ptr<Connection> _open();
  void _give_back(std::unique_ptr<Connection> connection) noexcept;
  // With `_mutex` held:
  bool _available() const noexcept { return !_idle.empty() || _lent < _count; }
  void _wait_for_a_turn(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds patience);
  void _loan_ended() noexcept;

  const std::filesystem::path _path;
  const std::size_t _count;
  const Configure _configure;

  std::mutex _closing;  // taken before `_mutex`: who closes too returns when all are closed
  std::mutex _mutex;
  WaitLine _waiting;                  // for a connection
  std::condition_variable _all_back;  // the last loan has ended; `close` waits for it
  // Its memory is reserved ahead: giving back cannot fail.
  std::vector<std::unique_ptr<Connection>> _idle;
  std::size_t _lent = 0;  // counts a connection being opened, so `_count` is never exceeded
  bool _closed = false;
};

}  // namespace veldra
