#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace veldra {

/// What is going on right now: why the log grows, why a write waits.
///
///     const Activity now = db.activity();
///     if (now.log_bytes > 100'000'000 && now.oldest_read > std::chrono::seconds(10))
///       warn("the log cannot start anew because of {}", now.oldest_read_sql);
///     if (now.writers_waiting > 0)
///       warn("writes have waited {} for {}", *now.writer_busy, now.writer_operation);
///
/// Each figure is true of its own moment, in steps of the kernel's tick (some milliseconds). A
/// cursor of `Database::execute` that is kept unread holds the log too and is not shown, nor is
/// what other processes do.
struct Activity {
  std::int64_t log_bytes = 0;  ///< of the -wal file; 0 where there is none
  int readers_open = 0;        ///< read connections of this `Database`
  int readers_lent = 0;        ///< those of them that run a query or a snapshot
  /// How long the oldest query or snapshot on a read connection has held its state.
  std::optional<std::chrono::milliseconds> oldest_read;
  /// The statement that it runs or ran last; "" for a snapshot that has run nothing.
  std::string oldest_read_sql;
  /// How long the connection lock has been held; none when it is free.
  std::optional<std::chrono::milliseconds> writer_busy;
  /// What holds it: the name of a member of `Database` ("transaction", "swap_index_from",
  /// "compact"), or the text of a statement; "" when it is free.
  std::string writer_operation;
  int writers_waiting = 0;  ///< threads that wait for the connection lock
};

}  // namespace veldra
