#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace veldra::tool {

/// A running program.
///
/// Started with posix_spawn, in a process group of its own: a Ctrl-C at the terminal reaches this
/// program alone, which then ends its children. Standard input is empty; standard error goes
/// nowhere.
///
/// Thread safety: one thread per object.
/// Ownership: the destructor kills what still runs and reaps it.
class ChildProcess {
 public:
  /// `output` is the file that the program's standard output goes to, if anywhere; the caller's.
  /// Throws `std::system_error`; errno ENOENT when there is no such program.
  ChildProcess(const std::vector<std::string>& arguments, const std::filesystem::path& directory,
               std::optional<int> output = std::nullopt);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// Waits for the end: the exit status, or 128 plus the signal that ended it.
  int wait();

  /// Waits for the end, but not longer than `patience`; false when it still runs then. Throws
  /// `std::system_error` when that cannot be watched.
  bool wait_for(std::chrono::milliseconds patience) const;

 private:
  pid_t _pid = -1;
};

/// While it lives, every child process is killed: those that run, and those that are started
/// meanwhile, so that none slips through between a look and a start.
///
/// Thread safety: any thread; several may live at once.
class NoChildren {
 public:
  NoChildren();
  NoChildren(const NoChildren&) = delete;
  NoChildren& operator=(const NoChildren&) = delete;
  ~NoChildren();
};

/// A finished program's exit status and output.
struct Captured {
  int status;
  std::string output;
  bool timed_out = false;  // it was killed because its time was over
};

/// Runs a program to its end, or kills it after `patience`. Throws as `ChildProcess` does. Its
/// output is a file in memory, which it may also open: /proc/self/fd/1.
Captured run_program(const std::vector<std::string>& arguments,
                     const std::filesystem::path& directory = ".",
                     std::optional<std::chrono::milliseconds> patience = std::nullopt);

}  // namespace veldra::tool
