#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace veldra::tool {

/// Shows on standard error how far a long piece of work is: on a terminal a bar with rate and time
/// left, at the end one plain line unless it was done at once; nothing when quiet.
///
/// Thread safety: `advance` and `set_done` from any thread. A thread of its own draws.
class Progress {
 public:
  /// `total` 0 when nobody knows it: the time that passes is shown instead. `unit` is a plural.
  Progress(std::string label, std::uint64_t total, std::string unit);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void advance(std::uint64_t count = 1) { _done += count; }
  void set_done(std::uint64_t count) { _done = count; }

  /// Whether anything is drawn: the command line's choice, once, before the first is made.
  static void set_quiet(bool quiet);

 private:
  void _draw();
  void _run();
  double _seconds() const;
  std::string _counts(double seconds) const;

  const std::string _label;
  const std::uint64_t _total;
  const std::string _unit;
  const std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();
  std::atomic<std::uint64_t> _done = 0;
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _finished = false;  // guarded by _mutex
  std::thread _thread;     // only on a terminal
};

}  // namespace veldra::tool
