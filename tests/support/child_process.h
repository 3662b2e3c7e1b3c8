#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace veldra {

/// A program of its own, started by posix_spawn: SQLite connections do not survive a fork. Ended
/// and waited for when the guard goes.
class ChildProcess {
 public:
  /// `arguments` begins with the program's path. `environment` is added to this process's own, as
  /// "NAME=value".
  explicit ChildProcess(std::vector<std::string> arguments,
                        const std::vector<std::string>& environment = {});
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// Waits for its end: its exit status, or 128 and the signal that ended it.
  int wait();

  /// Sends SIGKILL.
  void kill();

  /// What the child said next by `tell_parent`; "" when it has ended, or said nothing until the
  /// deadline.
  std::string hear(std::chrono::milliseconds deadline = std::chrono::seconds(10));

 private:
  int _ear = -1;  // the reading end of a pipe to the child
  pid_t _pid = 0;
  int _status = -1;  // as `wait` gives it; -1 while it runs
};

/// Runs one disabled test of this test program ("Suite.DISABLED_Name") in a process of its own; the
/// test finds `argument` by `child_argument()`.
std::vector<std::string> this_program_running(const std::string& test);
std::vector<std::string> with_child_argument(const std::string& argument);
std::string child_argument();

/// In a child process: one short message to the test that started it.
void tell_parent(std::string_view message);

}  // namespace veldra
