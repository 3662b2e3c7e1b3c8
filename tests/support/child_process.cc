#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace veldra {
namespace {

constexpr const char* ARGUMENT = "VELDRA_TEST_CHILD_ARGUMENT";
constexpr int MOUTH = 3;  // the child's end of the pipe to its parent

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments,
                           const std::vector<std::string>& environment) {
  std::vector<std::string> variables = environment;
  for (char** own = environ; *own != nullptr; ++own) variables.emplace_back(*own);
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe2");
  _ear = pipe[0];
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, pipe[1], MOUTH);
  const int code = ::posix_spawn(&_pid, arguments.front().c_str(), &actions, nullptr,
                                 pointers(arguments).data(), pointers(variables).data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  if (code != 0) throw std::system_error(code, std::generic_category(), arguments.front());
}

ChildProcess::~ChildProcess() {
  kill();
  wait();
  ::close(_ear);
}

int ChildProcess::wait() {
  int status = 0;
  while (_status < 0) {
    if (::waitpid(_pid, &status, 0) == _pid)
      _status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    else if (errno != EINTR)
      throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return _status;
}

void ChildProcess::kill() {
  if (_status < 0) ::kill(_pid, SIGKILL);
}

std::string ChildProcess::hear(std::chrono::milliseconds deadline) {
  pollfd ear = {_ear, POLLIN, 0};
  char said[512];
  if (::poll(&ear, 1, static_cast<int>(deadline.count())) <= 0) return "";
  const ssize_t length = ::read(_ear, said, sizeof said);
  return {said, static_cast<std::size_t>(length > 0 ? length : 0)};
}

std::vector<std::string> this_program_running(const std::string& test) {
  return {std::filesystem::read_symlink("/proc/self/exe").string(), "--gtest_filter=" + test,
          "--gtest_also_run_disabled_tests", "--gtest_brief=1"};
}

std::vector<std::string> with_child_argument(const std::string& argument) {
  return {std::string(ARGUMENT) + "=" + argument};
}

std::string child_argument() {
  const char* argument = std::getenv(ARGUMENT);
  return argument != nullptr ? argument : "";
}

void tell_parent(std::string_view message) {
  if (::write(MOUTH, message.data(), message.size()) < 0)
    throw std::system_error(errno, std::generic_category(), "the parent does not listen");
}

}  // namespace veldra
