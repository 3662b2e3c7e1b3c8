// The reentrant mutex that hands itself to whoever has waited longest.
#include "veldra/sync/fair_mutex.h"

#include <cassert>

namespace veldra {

void FairMutex::lock() {
  if (held_by_this_thread()) {
    ++_depth;
    return;
  }
  std::unique_lock state(_state);
  if (!_is_free() || !_waiting.empty()) {
    WaitLine::Place place(_waiting);
    place.wait(state, [&] { return place.is_first() && _is_free(); });
  }
  _take();
}

bool FairMutex::try_lock() {
  if (held_by_this_thread()) {
    ++_depth;
    return true;
  }
  const std::lock_guard state(_state);
  if (!_is_free() || !_waiting.empty()) return false;
  _take();
  return true;
}

void FairMutex::unlock() {
  assert(held_by_this_thread());
  if (_depth > 1) {
    --_depth;
    return;
  }
  const std::lock_guard state(_state);
  _depth = 0;
  _owner.store(std::thread::id(), std::memory_order_relaxed);
  _waiting.wake_first();  // under `_state`: its place dies as soon as it runs on
}

bool FairMutex::_is_free() const noexcept {
  return _owner.load(std::memory_order_relaxed) == std::thread::id();
}

void FairMutex::_take() noexcept {
  _owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  _depth = 1;
}

}  // namespace veldra
