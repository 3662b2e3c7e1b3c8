#pragma once

#include "veldra/export.h"

namespace veldra {

/// Marks the calling thread as the one that runs the host's event loop, for as long as it lives.
///
///     void serve() {
///       const EventLoopScope on_this_thread;
///       loop.run();
///     }
///
/// Work that blocks on the disk (`Database::compact`) declines on a marked thread. Guards nest: the
/// thread stays marked until the last one is gone.
///
/// Thread safety: a mark belongs to one thread; destroy the guard on the thread that made it.
class VELDRA_EXPORT EventLoopScope {
 public:
  [[nodiscard]] EventLoopScope() noexcept;
  EventLoopScope(const EventLoopScope&) = delete;
  EventLoopScope& operator=(const EventLoopScope&) = delete;
  ~EventLoopScope();
};

/// Whether an `EventLoopScope` of the calling thread is alive.
VELDRA_EXPORT bool event_loop_runs_here() noexcept;

}  // namespace veldra
