#pragma once

#include <sys/types.h>

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
/// Thread safety: one thread per object; `kill_all` from any thread.
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

  /// Kills every child of this process. Any thread.
  static void kill_all();

 private:
  pid_t _pid = -1;
};

/// A finished program's exit status and output.
struct Captured {
  int status;
  std::string output;
};

/// Runs a program to its end. Throws as `ChildProcess` does. Its output is a file in memory, which
/// it may also open: /proc/self/fd/1.
Captured run_program(const std::vector<std::string>& arguments,
                     const std::filesystem::path& directory = ".");

}  // namespace veldra::tool
