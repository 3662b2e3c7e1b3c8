#pragma once

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

namespace veldra::tool {

/// Ends the process in good order at SIGINT, SIGTERM and SIGHUP, while it lives.
///
/// A thread of its own waits for the signals, so nothing runs in a signal handler. Usually it kills
/// the child processes, removes the files of `RemoveOnExit` and ends the process at once: whatever
/// SQLite is doing, a process that ends in the middle of a transaction leaves the state before it
/// (https://www.sqlite.org/atomiccommit.html). Inside a `StopInOrder` the first signal only makes
/// `check_interrupted` throw.
///
/// Thread safety: made once, in `main`, before any other thread: they inherit the blocked signals.
class InterruptWatch {
 public:
  InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;
  ~InterruptWatch();

 private:
  sigset_t _signals{};
  std::thread _thread;
};

/// A signal asked the command to stop; thrown where nothing is half done.
class Interrupted : public std::runtime_error {
 public:
  explicit Interrupted(int signal) : std::runtime_error("interrupted"), signal_number(signal) {}

  const int signal_number;
};

/// Throws `Interrupted` once a signal has come inside a `StopInOrder`. Any thread.
void check_interrupted();

/// Files to remove if a signal ends the process at once.
class RemoveOnExit {
 public:
  explicit RemoveOnExit(std::vector<std::filesystem::path> files);
  RemoveOnExit(const RemoveOnExit&) = delete;
  RemoveOnExit& operator=(const RemoveOnExit&) = delete;
  ~RemoveOnExit();
};

/// While it lives the work itself stops at a signal, by `check_interrupted`: the children are
/// killed, which wakes whoever reads from them. A second signal ends the process at once all the
/// same.
class StopInOrder {
 public:
  StopInOrder();
  StopInOrder(const StopInOrder&) = delete;
  StopInOrder& operator=(const StopInOrder&) = delete;
  ~StopInOrder();
};

}  // namespace veldra::tool
