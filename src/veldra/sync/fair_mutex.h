#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "veldra/export.h"

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
/// Fairness: the release hands the mutex to the thread that has waited longest, so a thread that
/// locks again right after it unlocked goes behind everyone who waited meanwhile.
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
  struct Waiter;

  std::mutex _state;
  // Atomic only for the owner's own check before it takes `_state`: no other thread can store the
  // caller's id.
  std::atomic<std::thread::id> _owner;
  int _depth = 0;
  Waiter* _first = nullptr;  // the queue runs through the waiting threads' own stacks
  Waiter* _last = nullptr;
};

}  // namespace veldra
