#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/sqlite/connection.h"
#include "veldra/sync/deadline.h"
#include "veldra/sync/wait_line.h"

namespace veldra {

/// A bounded set of read-only connections to one database file, lent to one query at a time.
/// Internal.
///
///     const ReaderPool::Lease reader = pool.lease();
///     std::optional<Row> row = reader->execute("SELECT path FROM files").fetchone();
///
/// A connection is opened when it is first needed. The one that came back last goes out first, so a
/// lightly loaded process keeps few open: at each return those are closed that were not lent for a
/// while, all but one. Nothing happens while nobody asks.
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

  /// What goes on at this moment.
  struct Use {
    int open = 0;  ///< connections, those on loan included
    int lent = 0;
    std::optional<std::chrono::steady_clock::time_point> oldest;  ///< loan; none when none is out
    std::string oldest_sql;                                       ///< what it was last shown to run
  };

 private:
  /// A place for a connection, and who has it.
  struct Reader {
    std::unique_ptr<Connection>
        connection;  // none until it is first lent; the borrower's meanwhile
    std::chrono::steady_clock::time_point lent_since;
    std::uint64_t loan = 0;  // its number: several begin within one tick of the clock
    std::string_view sql;    // the borrower's text, or `shown`
    std::string shown;
    bool is_lent = false;
  };

 public:
  /// One connection on loan; gives it back when destroyed. Moved, never copied.
  class [[nodiscard]] Lease {
   public:
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    Lease(Lease&& other) noexcept;
    Lease& operator=(Lease&&) = delete;
    ~Lease();

    Connection& operator*() const noexcept { return *_reader->connection; }
    Connection* operator->() const noexcept { return _reader->connection.get(); }

    /// What `use` says that it runs, from now on.
    void show(std::string_view sql) const;

   private:
    friend class ReaderPool;
    Lease(ReaderPool& pool, Reader& reader) noexcept;

    ReaderPool* _pool;
    Reader* _reader;  // none when moved from
  };

  /// Opens nothing yet. `count`, 1 or more, is how many connections may be open at once; one that
  /// was lent last as long ago as `idle_time` is closed when another comes back.
  ReaderPool(std::filesystem::path path, int count, Configure configure,
             std::chrono::milliseconds idle_time = std::chrono::minutes(1));
  ReaderPool(const ReaderPool&) = delete;
  ReaderPool& operator=(const ReaderPool&) = delete;
  ~ReaderPool() = default;

  /// Lends an idle connection, or opens one while fewer than `count` are open. `use` says that it
  /// runs `sql`, which lives as long as the loan.
  ///
  /// Waits up to `patience` for a loan to come back, and no longer than `deadline`; who came first
  /// is served first. Throws `ReaderUnavailable` after the one and `QueryInterrupted` after the
  /// other; `ReaderUnavailable` at once when the pool is closed, also to threads already waiting;
  /// `Error` when a new connection cannot be opened or configured, and its place is free again.
  Lease lease(std::chrono::milliseconds patience = std::chrono::seconds(5),
              std::string_view sql = {}, const Deadline& deadline = {});

  /// Waits for nobody.
  Use use() const;

  /// Closes the idle connections but one, which gives back its page cache. Those on loan are left
  /// alone.
  void give_back_memory();

  /// Refuses new loans, waits for those that are out, then closes every connection.
  ///
  /// May be repeated. A thread that holds a lease must not call it: it would wait for itself.
  void close();

 private:
  void _open(Reader& reader);
  void _give_back(Reader& reader) noexcept;
  // With `_mutex` held:
  void _wait_for_a_turn(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds patience,
                        const Deadline& deadline);
  Reader& _lend(std::string_view sql) noexcept;
  void _loan_ended(Reader& reader) noexcept;
  void _close_unused(std::unique_lock<std::mutex>& lock,
                     std::chrono::milliseconds idle_time) noexcept;
  Reader* _take_unused(std::chrono::milliseconds idle_time) noexcept;

  const std::filesystem::path _path;
  const Configure _configure;
  const std::chrono::milliseconds _idle_time;

  std::mutex _closing;  // taken before `_mutex`: who closes too returns when all are closed
  mutable std::mutex _mutex;
  WaitLine _waiting;                  // for a connection
  std::condition_variable _all_back;  // the last loan has ended; `close` waits for it
  std::vector<Reader> _readers;       // as many as may be open; never grows
  // Those not on loan, the one to lend next at the end; those without a connection before the
  // others. Its memory is reserved ahead: giving back cannot fail.
  std::vector<Reader*> _idle;
  std::uint64_t _loans = 0;  // ever made
  bool _closed = false;
};

}  // namespace veldra
