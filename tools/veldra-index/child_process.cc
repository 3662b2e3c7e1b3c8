// Starting programs, talking to them through pipes, ending them.
#include "veldra-index/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <system_error>
#include <utility>

namespace veldra::tool {
namespace {

constexpr int PIPE_BYTES = 1 << 20;  // fewer switches between a program that writes and its reader
constexpr std::size_t READ_BYTES = 64 * 1024;

std::mutex
    running_mutex;  // guards running; held while a pid is reaped, so none is killed after that
std::vector<pid_t> running;

struct Pipe {
  Pipe() {
    if (::pipe2(ends, O_CLOEXEC) != 0)
      throw std::system_error(errno, std::generic_category(), "pipe");
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : ends) {
      if (end >= 0) ::close(end);
    }
  }
  int take(int end) { return std::exchange(ends[end], -1); }

  int ends[2] = {-1, -1};
};

/// The attributes and file actions of one posix_spawn.
struct SpawnSetup {
  SpawnSetup(const Pipe& input, const Pipe& output, const std::filesystem::path& directory) {
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input.ends[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());

    sigset_t none;
    sigset_t pipe_signal;
    ::sigemptyset(&none);
    ::sigemptyset(&pipe_signal);
    ::sigaddset(&pipe_signal, SIGPIPE);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setsigmask(&attributes,
                                 &none);  // this program's own mask is inherited otherwise
    ::posix_spawnattr_setsigdefault(&attributes, &pipe_signal);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    ::posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  ~SpawnSetup() {
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::filesystem::path& directory) {
  Pipe input;
  Pipe output;
  const SpawnSetup setup(input, output, directory);
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  const std::lock_guard lock(running_mutex);
  running.reserve(running.size() + 1);
  const int error =
      ::posix_spawnp(&_pid, argv[0], &setup.actions, &setup.attributes, argv.data(), environ);
  if (error != 0) throw std::system_error(error, std::generic_category(), arguments[0]);
  running.push_back(_pid);
  _input = input.take(1);
  _output = output.take(0);
  ::fcntl(_output, F_SETPIPE_SZ,
          PIPE_BYTES);  // refused where the limit is lower, which is slower only
}

ChildProcess::~ChildProcess() {
  close_input();
  if (_output >= 0) ::close(_output);
  if (_pid < 0) return;
  ::kill(_pid, SIGKILL);
  wait();
}

bool ChildProcess::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(_input, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void ChildProcess::close_input() {
  if (_input >= 0) ::close(std::exchange(_input, -1));
}

std::size_t ChildProcess::read(std::span<char> buffer) {
  ssize_t count = 0;
  do {
    count = ::read(_output, buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
}

int ChildProcess::wait() {
  if (_pid < 0) return 0;
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(_pid), &info, WEXITED | WNOWAIT) != 0 &&
         errno == EINTR) {
  }
  int status = 0;
  {
    const std::lock_guard lock(running_mutex);
    std::erase(running, _pid);
    ::waitpid(std::exchange(_pid, -1), &status, 0);
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void ChildProcess::kill_all() {
  const std::lock_guard lock(running_mutex);
  for (const pid_t pid : running) ::kill(pid, SIGKILL);
}

Captured run_program(const std::vector<std::string>& arguments,
                     const std::filesystem::path& directory) {
  ChildProcess program(arguments, directory);
  program.close_input();
  Captured captured{};
  std::vector<char> block(READ_BYTES);
  while (const std::size_t count = program.read(block)) captured.output.append(block.data(), count);
  captured.status = program.wait();
  return captured;
}

}  // namespace veldra::tool
