#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "veldra/export.h"
#include "veldra/sync/deadline.h"
#include "veldra/sync/wait_line.h"

namespace veldra {

/// A reentrant mutex that serves its waiters in the order of their arrival.
///
///     FairMutex mutex;
///     const std::lock_guard guard(mutex);
///
/// | state             | lock                  | try_lock | unlock                                |
/// |-------------------|-----------------------|----------|---------------------------------------|
/// | free              | mine, depth 1         | true     | undefined                             |
/// | mine, depth n     | depth n + 1           | true     | depth n - 1; at 0 the next one's turn |
/// | another thread's  | waits for its turn    | false    | undefined                             |
///
/// Fairness: after a release it is the turn of the thread that has waited longest, so a thread that
/// locks again right after it unlocked goes behind everyone who waited meanwhile. While somebody
/// has the turn the mutex is another thread's. A thread that is cancelled while it waits, or gives
/// up, leaves the order of the others as it is.
///
/// Thread safety: any member, from any thread; `_state` guards every field below it and is held
/// for a few instructions, never while waiting.
class VELDRA_EXPORT FairMutex {
 public:
  FairMutex() = default;
  FairMutex(const FairMutex&) = delete;
  FairMutex& operator=(const FairMutex&) = delete;
  ~FairMutex() = default;

  void lock();
  void unlock();

  /// Gives up at `deadline`, or at once: false then, and nothing has changed; never in its turn.
  /// `purpose` is what `use` shows while the outermost lock is held, and must live as long.
  bool lock(std::string_view purpose, const Deadline& deadline = {});
  bool try_lock(std::string_view purpose = "");

  /// What goes on at this moment. Waits for nobody.
  struct Use {
    std::optional<std::chrono::steady_clock::time_point> since;  ///< locked; none when it is free
    std::string purpose;
    int waiting = 0;  ///< threads that wait for it
  };
  Use use() const;

  /// True when the calling thread holds the mutex; for assertions.
  bool held_by_this_thread() const noexcept {
    return _owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

 private:
  bool _is_free() const noexcept;
  void _take(std::string_view purpose) noexcept;

  mutable std::mutex _state;
  // Atomic only for the owner's own check before it takes `_state`: no other thread can store the
  // caller's id.
  std::atomic<std::thread::id> _owner;
  int _depth = 0;
  std::string_view _purpose;
  std::chrono::steady_clock::time_point _since;
  WaitLine _waiting;
};

}  // namespace veldra
