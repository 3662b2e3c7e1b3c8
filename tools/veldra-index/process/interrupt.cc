// Waiting for signals on a thread of its own, and what they end.
#include "veldra-index/process/interrupt.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "veldra-index/process/child_process.h"

namespace veldra::tool {
namespace {

constexpr int STOP_WATCHING = SIGUSR1;  // from the destructor to its own thread

std::atomic<int> signal_received = 0;
std::atomic<bool> stop_in_order = false;
std::mutex files_mutex;  // guards files_to_remove
std::vector<std::string> files_to_remove;

[[noreturn]] void end_process(int signal_number) {
  {
    const std::lock_guard lock(files_mutex);
    for (const std::string& file : files_to_remove) ::unlink(file.c_str());
  }
  static constexpr std::string_view MESSAGE = "\nveldra-index: interrupted\n";
  (void)!::write(STDERR_FILENO, MESSAGE.data(), MESSAGE.size());
  ::_exit(128 + signal_number);
}

void watch(sigset_t signals) {
  int signal_number = 0;
  std::optional<NoChildren> no_children;  // from the first signal on
  while (::sigwait(&signals, &signal_number) == 0 && signal_number != STOP_WATCHING) {
    const bool first = signal_received.exchange(signal_number) == 0;
    no_children.emplace();
    if (!first || !stop_in_order) end_process(signal_number);
  }
}

}  // namespace

InterruptWatch::InterruptWatch() {
  ::sigemptyset(&_signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, STOP_WATCHING}) ::sigaddset(&_signals, number);
  ::pthread_sigmask(SIG_BLOCK, &_signals, nullptr);
  _thread = std::thread(watch, _signals);
}

InterruptWatch::~InterruptWatch() {
  ::pthread_kill(_thread.native_handle(), STOP_WATCHING);
  _thread.join();
}

void check_interrupted() {
  const int signal_number = signal_received;
  if (signal_number != 0) throw Interrupted(signal_number);
}

RemoveOnExit::RemoveOnExit(std::vector<std::filesystem::path> files) {
  const std::lock_guard lock(files_mutex);
  files_to_remove.assign(files.begin(), files.end());
}

RemoveOnExit::~RemoveOnExit() {
  const std::lock_guard lock(files_mutex);
  files_to_remove.clear();
}

StopInOrder::StopInOrder() {
  stop_in_order = true;
}

StopInOrder::~StopInOrder() {
  stop_in_order = false;
}

}  // namespace veldra::tool
