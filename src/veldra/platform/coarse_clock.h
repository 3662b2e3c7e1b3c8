#pragma once

#include <ctime>

#include <chrono>

namespace veldra {

/// The steady clock as it was at the kernel's last tick, at most some milliseconds ago. Internal.
///
/// A fifth of the price (https://man7.org/linux/man-pages/man2/clock_gettime.2.html).
inline std::chrono::steady_clock::time_point coarse_now() noexcept {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return std::chrono::steady_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                               std::chrono::nanoseconds(time.tv_nsec));
}

}  // namespace veldra
