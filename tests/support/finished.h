#pragma once

#include <chrono>
#include <future>

namespace veldra {

/// Whether `future` is ready within `deadline`: the one way for a test to wait. Long for what must
/// happen, short (50 ms) for what must not: too short a wait can miss a fault, never invent one.
template <typename T>
bool finished(const std::future<T>& future,
              std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
  return future.wait_for(deadline) == std::future_status::ready;
}

}  // namespace veldra
