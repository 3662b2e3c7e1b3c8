// Starting programs, taking their output, ending them.
#include "veldra-index/process/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {  // which glibc 2.36 forgets in this header
#include <sys/pidfd.h>
}

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <system_error>
#include <utility>

#include "veldra-index/process/file_descriptor.h"

namespace veldra::tool {
namespace {

// Guards what follows; held while a pid is reaped, so that none is killed after that.
std::mutex running_mutex;
std::vector<pid_t> running;
int refusals = 0;  // how many `NoChildren` live

/// And what it started: each has a process group of its own.
void kill_group(pid_t pid) {
  ::kill(-pid, SIGKILL);
}

/// A file that has no name and lies in memory.
class MemoryFile {
 public:
  MemoryFile() : _file(::memfd_create("output", MFD_CLOEXEC)) {
    if (fd() < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
  }

  int fd() const { return _file.get(); }

  std::string text() const {
    struct stat status {};
    if (::fstat(fd(), &status) != 0)
      throw std::system_error(errno, std::generic_category(), "fstat");
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    for (std::size_t used = 0; used < text.size();) {
      const ssize_t count =
          ::pread(fd(), text.data() + used, text.size() - used, static_cast<off_t>(used));
      if (count <= 0) throw std::system_error(errno, std::generic_category(), "pread");
      used += static_cast<std::size_t>(count);
    }
    return text;
  }

 private:
  const FileDescriptor _file;
};

/// The attributes and file actions of one posix_spawn.
struct SpawnSetup {
  SpawnSetup(std::optional<int> output, const std::filesystem::path& directory) {
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (output)
      ::posix_spawn_file_actions_adddup2(&actions, *output, STDOUT_FILENO);
    else
      ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
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
                           const std::filesystem::path& directory, std::optional<int> output) {
  const SpawnSetup setup(output, directory);
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  const std::lock_guard lock(running_mutex);
  running.reserve(running.size() + 1);
  const int error =
      ::posix_spawnp(&_pid, argv[0], &setup.actions, &setup.attributes, argv.data(), environ);
  if (error != 0) throw std::system_error(error, std::generic_category(), arguments[0]);
  running.push_back(_pid);
  if (refusals > 0) kill_group(_pid);
}

ChildProcess::~ChildProcess() {
  if (_pid < 0) return;
  kill_group(_pid);
  wait();
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

bool ChildProcess::wait_for(std::chrono::milliseconds patience) const {
  const FileDescriptor process(::pidfd_open(_pid, 0));
  if (process.get() < 0) throw std::system_error(errno, std::generic_category(), "pidfd_open");
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::max(deadline - std::chrono::steady_clock::now(), std::chrono::nanoseconds(0)));
    pollfd ended{process.get(), POLLIN, 0};
    const int count = ::poll(&ended, 1, static_cast<int>(left.count()));
    if (count >= 0) return count > 0;
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  }
}

NoChildren::NoChildren() {
  const std::lock_guard lock(running_mutex);
  ++refusals;
  for (const pid_t pid : running) kill_group(pid);
}

NoChildren::~NoChildren() {
  const std::lock_guard lock(running_mutex);
  --refusals;
}

Captured run_program(const std::vector<std::string>& arguments,
                     const std::filesystem::path& directory,
                     std::optional<std::chrono::milliseconds> patience) {
  const MemoryFile output;
  std::optional<ChildProcess> program(std::in_place, arguments, directory, output.fd());
  if (patience && !program->wait_for(*patience)) {
    program.reset();  // kills it
    return {128 + SIGKILL, output.text(), true};
  }
  const int status = program->wait();
  return {status, output.text()};
}

}  // namespace veldra::tool
