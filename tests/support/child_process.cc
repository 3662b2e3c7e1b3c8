#include "support/child_process.h"

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
  const int code = ::posix_spawn(&_pid, arguments.front().c_str(), nullptr, nullptr,
                                 pointers(arguments).data(), pointers(variables).data());
  if (code != 0) throw std::system_error(code, std::generic_category(), arguments.front());
}

ChildProcess::~ChildProcess() {
  kill();
  wait();
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

}  // namespace veldra
