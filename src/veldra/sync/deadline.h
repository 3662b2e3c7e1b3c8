#pragma once

#include <algorithm>
#include <chrono>
#include <optional>
#include <stop_token>
#include <utility>

namespace veldra {

/// When something is given up: at a moment, when a stop is requested, or never. Internal.
///
/// A stop is asked after, not announced: what would announce it runs on the thread that requests
/// the stop, and would need the very mutex that the waiting thread sleeps with.
///
/// Thread safety: immutable.
class Deadline {
 public:
  using Clock = std::chrono::steady_clock;

  /// How often a wait asks whether a stop was requested.
  static constexpr std::chrono::milliseconds LOOK_EVERY{10};

  /// Never.
  Deadline() = default;

  /// `timeout` from now on; zero or less is over at once, and one beyond the clock's range never.
  Deadline(std::optional<std::chrono::milliseconds> timeout, std::stop_token stop)
      : _stop(std::move(stop)) {
    using std::chrono::milliseconds;
    if (!timeout) return;
    const Clock::time_point now = Clock::now();
    if (*timeout <= milliseconds::zero())
      _moment = Clock::time_point::min();
    else if (*timeout < std::chrono::duration_cast<milliseconds>(NEVER - now))
      _moment = now + *timeout;
  }

  bool is_set() const noexcept { return _moment != NEVER || _stop.stop_possible(); }

  bool reached(Clock::time_point now = Clock::now()) const noexcept {
    return now >= _moment || _stop.stop_requested();
  }

  /// Until when a wait may sleep before it looks again.
  Clock::time_point next_look() const noexcept {
    return _stop.stop_possible() ? std::min(_moment, Clock::now() + LOOK_EVERY) : _moment;
  }

 private:
  static constexpr Clock::time_point NEVER = Clock::time_point::max();

  Clock::time_point _moment = NEVER;
  std::stop_token _stop;
};

}  // namespace veldra
