#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// A running program with pipes to its standard input and from its standard output.
///
/// Started with posix_spawn, in a process group of its own: a Ctrl-C at the terminal reaches this
/// program alone, which then ends its children. Standard error goes nowhere.
///
/// Thread safety: one thread per object; `kill_all` from any thread.
/// Ownership: the destructor kills what still runs and reaps it.
class ChildProcess {
 public:
  /// Throws `std::system_error`; errno ENOENT when there is no such program.
  ChildProcess(const std::vector<std::string>& arguments, const std::filesystem::path& directory);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// False when the program no longer reads.
  bool write(std::string_view bytes);
  void close_input();

  /// Waits for output and gives how many bytes of it were put into `buffer`; 0 at its end.
  std::size_t read(std::span<char> buffer);

  /// Waits for the end: the exit status, or 128 plus the signal that ended it.
  int wait();

  /// Kills every child of this process. Any thread.
  static void kill_all();

 private:
  pid_t _pid = -1;
  int _input = -1;
  int _output = -1;
};

/// A finished program's exit status and output.
struct Captured {
  int status;
  std::string output;
};

/// Runs a program to its end. Throws as `ChildProcess` does.
Captured run_program(const std::vector<std::string>& arguments,
                     const std::filesystem::path& directory = ".");

}  // namespace veldra::tool
