#pragma once

namespace veldra {

/// Makes operator new fail on the calling thread for as long as it lives: the n-th call from here
/// on, or that one and all after it; n = 0 for none. One at a time on a thread.
class FailingNew {
 public:
  FailingNew(int n, bool lasting) noexcept;
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;
  ~FailingNew();

  /// Whether one has failed since the last of these guards was made on this thread.
  static bool met() noexcept;
};

}  // namespace veldra
