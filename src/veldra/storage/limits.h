#pragma once

#include <chrono>
#include <optional>
#include <stop_token>

#include "veldra/errors.h"  // QueryInterrupted

namespace veldra {

/// What ends a query early. Nothing set: nothing does, and it costs nothing.
///
///     std::stop_source typing;  // request_stop() when the user has typed on
///     db.fetchall(SEARCH, {words}, {.timeout = std::chrono::milliseconds(500),
///                                   .stop = typing.get_token()});
///
/// A limit reaches all that a query waits for: a read connection, the connection lock where the
/// writer serves, a locked file, and the running statement. It ends no later than 50 ms after the
/// limit, with `QueryInterrupted`; one that is done in time is never interrupted, and a wait is
/// never longer than without a limit. Not covered: the time in a callback of the caller, one step
/// of another thread's cursor on the writer, one long operation inside SQLite (a function over a
/// huge text, the count of a whole table), and a sync.
///
/// Nobody else's query is touched: on the connection SQLite asks about the limit only while a call
/// of this query holds it, and nothing stays behind. A progress handler of the host's own on the
/// writer connection is gone afterwards, since SQLite keeps one
/// (https://www.sqlite.org/c3ref/progress_handler.html).
struct Limits {
  /// From the call on; zero or less is over at once, before anything is run.
  std::optional<std::chrono::milliseconds> timeout;
  /// Looked at about every 10 ms by what waits. May be requested from any thread, at any time.
  std::stop_token stop;
};

}  // namespace veldra
