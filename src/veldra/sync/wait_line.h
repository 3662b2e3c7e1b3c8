#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "veldra/export.h"

namespace veldra {

/// Threads that wait for something in the order of their arrival.
///
///     std::unique_lock lock(mutex);
///     WaitLine::Place place(line);
///     place.wait(lock, [&] { return place.is_first() && free > 0; });
///     --free;
///
/// The line says who is first, and wakes; what is waited for is its user's. Whoever makes some of
/// it free calls `wake_first`; whoever comes while the line is not empty joins it.
///
/// A thread leaves the line with its `Place`, however the wait ends: served, out of patience, or by
/// the unwinding of a thread that is cancelled, which takes the mutex again first
/// (https://man7.org/linux/man-pages/man3/pthread_cond_wait.3p.html). One that leaves without
/// having been served wakes the next, since it may have been woken for something that it left.
///
/// Thread safety: every member under the one mutex that the user waits with.
class VELDRA_EXPORT WaitLine {
 public:
  class VELDRA_EXPORT Place {
   public:
    explicit Place(WaitLine& line) noexcept;
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place();

    bool is_first() const noexcept { return _line._first == this; }

    /// Waits until `served` holds.
    template <typename Served>
    void wait(std::unique_lock<std::mutex>& lock, Served served) {
      _woken.wait(lock, served);
      _served = true;
    }

    /// The same, until `moment` at most; what `served` says at the end.
    template <typename Served>
    bool wait_until(std::unique_lock<std::mutex>& lock,
                    std::chrono::steady_clock::time_point moment, Served served) {
      return _served = _woken.wait_until(lock, moment, served);
    }

   private:
    friend class WaitLine;

    WaitLine& _line;
    Place* _before;
    Place* _behind = nullptr;
    bool _served = false;
    std::condition_variable _woken;
  };

  WaitLine() = default;
  WaitLine(const WaitLine&) = delete;
  WaitLine& operator=(const WaitLine&) = delete;
  ~WaitLine() = default;

  bool empty() const noexcept { return _first == nullptr; }

  /// How many stand in it; counts them.
  int size() const noexcept;

  /// Has the thread that came first, or every one, look again whether it is served.
  void wake_first() noexcept;
  void wake_all() noexcept;

 private:
  Place* _first = nullptr;  // the line runs through the waiting threads' own stacks
  Place* _last = nullptr;
};

}  // namespace veldra
