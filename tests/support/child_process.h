#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace veldra {

/// A process of its own, killed and waited for when the guard goes. For tests that have no SQLite
/// connection open and run no other thread when they start it: neither survives a fork.
class ChildProcess {
 public:
  using Tell = std::function<void(std::string_view message)>;

  /// Runs `work`, which may tell its parent something; its exit status is 1 when a test failed.
  explicit ChildProcess(const std::function<void(const Tell& tell)>& work) {
    (void)std::fflush(stdout);
    if (::pipe(_pipe) != 0 || (_pid = ::fork()) < 0)
      throw std::system_error(errno, std::generic_category(), "fork");
    if (_pid > 0) {
      ::close(_pipe[1]);
      return;
    }
    _be_the_child(work);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() {
    if (_pid > 0) kill();
    ::close(_pipe[0]);
  }

  /// Ends it at once.
  void kill() {
    ::kill(_pid, SIGKILL);
    wait();
  }

  /// Waits for its end: its exit status, or -1 when a signal ended it.
  int wait() {
    int status = 0;
    ::waitpid(std::exchange(_pid, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  /// What the child told next; "" when it has ended, or told nothing for 10 s.
  std::string hear() {
    pollfd ear = {_pipe[0], POLLIN, 0};
    char told[512];
    const bool in_time = ::poll(&ear, 1, 10'000) > 0;
    const ssize_t length = in_time ? ::read(_pipe[0], told, sizeof told) : 0;
    return {told, static_cast<std::size_t>(length > 0 ? length : 0)};
  }

 private:
  /// An exception ends the process: it must not unwind into the parent's test.
  [[noreturn]] void _be_the_child(const std::function<void(const Tell& tell)>& work) noexcept {
    work([this](std::string_view message) {
      EXPECT_EQ(::write(_pipe[1], message.data(), message.size()), std::ssize(message));
    });
    (void)std::fflush(stdout);
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }

  int _pipe[2] = {-1, -1};
  pid_t _pid = 0;  // 0 once it has been waited for
};

}  // namespace veldra
