// The reentrant mutex that hands itself to whoever has waited longest.
#include "veldra/sync/fair_mutex.h"

#include <cassert>
#include <condition_variable>

namespace veldra {

struct FairMutex::Waiter {
  const std::thread::id thread = std::this_thread::get_id();
  std::condition_variable granted;
  bool owns = false;
  Waiter* next = nullptr;
};

void FairMutex::lock() {
  if (held_by_this_thread()) {
    ++_depth;
    return;
  }
  std::unique_lock state(_state);
  if (_owner.load(std::memory_order_relaxed) == std::thread::id()) {
    _owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    _depth = 1;
    return;
  }
  Waiter waiter;
  (_last != nullptr ? _last->next : _first) = &waiter;
  _last = &waiter;
  waiter.granted.wait(state, [&] { return waiter.owns; });
}

bool FairMutex::try_lock() {
  if (held_by_this_thread()) {
    ++_depth;
    return true;
  }
  const std::lock_guard state(_state);
  if (_owner.load(std::memory_order_relaxed) != std::thread::id()) return false;
  _owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  _depth = 1;
  return true;
}

void FairMutex::unlock() {
  assert(held_by_this_thread());
  if (_depth > 1) {
    --_depth;
    return;
  }
  const std::lock_guard state(_state);
  Waiter* const next = _first;
  if (next == nullptr) {
    _depth = 0;
    _owner.store(std::thread::id(), std::memory_order_relaxed);
    return;
  }
  _first = next->next;
  if (_first == nullptr) _last = nullptr;
  _owner.store(next->thread, std::memory_order_relaxed);  // `_depth` stays 1, the new owner's
  next->owns = true;
  next->granted.notify_one();  // under `_state`: the waiter's condition dies as soon as it runs on
}

}  // namespace veldra
