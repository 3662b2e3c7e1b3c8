#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace veldra {

/// One `std::shared_ptr` that threads read and replace as a whole.
///
/// A copy taken with `load` stays valid while others `store`. A small mutex and not
/// `std::atomic<std::shared_ptr>`: libstdc++ 12's is slower under contention, and ThreadSanitizer
/// reports a race inside it.
///
/// Thread safety: any member, from any thread; the mutex is held for the copy alone.
template <typename T>
class SharedSlot {
 public:
  SharedSlot() = default;
  SharedSlot(const SharedSlot&) = delete;
  SharedSlot& operator=(const SharedSlot&) = delete;
  ~SharedSlot() = default;

  std::shared_ptr<T> load() const {
    const std::lock_guard guard(_mutex);
    return _value;
  }

  /// Returns what was there before, so that it is destroyed outside the mutex.
  std::shared_ptr<T> exchange(std::shared_ptr<T> value) {
    const std::lock_guard guard(_mutex);
    _value.swap(value);
    return value;
  }

  void store(std::shared_ptr<T> value) { exchange(std::move(value)); }

 private:
  mutable std::mutex _mutex;
  std::shared_ptr<T> _value;
};

}  // namespace veldra
