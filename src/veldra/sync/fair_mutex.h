#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "veldra/export.h"
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
/// has the turn the mutex is another thread's. A thread that is cancelled while it waits leaves the
/// order of the others as it is.
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
  bool try_lock();
  void unlock();

  /// True when the calling thread holds the mutex; for assertions.
  bool held_by_this_thread() const noexcept {
    return _owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

 private:
  bool _is_free() const noexcept;
  void _take() noexcept;

  std::mutex _state;
  // Atomic only for the owner's own check before it takes `_state`: no other thread can store the
  // caller's id.
  std::atomic<std::thread::id> _owner;
  int _depth = 0;
  WaitLine _waiting;
};

}  // namespace veldra
