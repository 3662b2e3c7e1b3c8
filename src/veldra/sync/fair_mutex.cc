// The reentrant mutex that hands itself to whoever has waited longest.
#include "veldra/sync/fair_mutex.h"

#include <cassert>

#include "veldra/platform/coarse_clock.h"

namespace veldra {

void FairMutex::lock() {
  lock("");
}

bool FairMutex::lock(std::string_view purpose, const Deadline& deadline) {
  if (held_by_this_thread()) {
    ++_depth;
    return true;
  }
  std::unique_lock state(_state);
  if (!_is_free() || !_waiting.empty()) {
    WaitLine::Place place(_waiting);
    const auto served = [&] { return place.is_first() && _is_free(); };
    if (!deadline.is_set()) {
      place.wait(state, served);
    } else {
      while (!place.wait_until(state, deadline.next_look(), served))
        if (deadline.reached()) return false;
    }
  }
  _take(purpose);
  return true;
}

bool FairMutex::try_lock(std::string_view purpose) {
  if (held_by_this_thread()) {
    ++_depth;
    return true;
  }
  const std::lock_guard state(_state);
  if (!_is_free() || !_waiting.empty()) return false;
  _take(purpose);
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
  _purpose = {};
  _owner.store(std::thread::id(), std::memory_order_relaxed);
  _waiting.wake_first();  // under `_state`: its place dies as soon as it runs on
}

FairMutex::Use FairMutex::use() const {
  const std::lock_guard state(_state);
  if (_is_free()) return {.since = {}, .purpose = {}, .waiting = _waiting.size()};
  return {.since = _since, .purpose = std::string(_purpose), .waiting = _waiting.size()};
}

bool FairMutex::_is_free() const noexcept {
  return _owner.load(std::memory_order_relaxed) == std::thread::id();
}

void FairMutex::_take(std::string_view purpose) noexcept {
  _owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  _depth = 1;
  _purpose = purpose;
  _since = coarse_now();
}

}  // namespace veldra
