#pragma once

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <vector>

namespace veldra {

/// Takes the layer's log lines of every level for as long as it lives, as a host's loggers would.
/// One at a time in a process; it keeps the last thousand.
class LogCapture {
 public:
  LogCapture() {
    _sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%l %n: %v", spdlog::pattern_time_type::local, ""));
    for (const char* name : LOGGERS) {
      spdlog::drop(name);
      const auto logger = std::make_shared<spdlog::logger>(name, _sink);
      logger->set_level(spdlog::level::trace);
      spdlog::register_logger(logger);
    }
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() {
    for (const char* name : LOGGERS) spdlog::drop(name);
  }

  /// The records so far: "INFO storage/database: Schema version 3 (recorded 1)".
  std::vector<std::string> lines() const {
    std::vector<std::string> lines = _sink->last_formatted();
    lines.erase(lines.begin(), lines.begin() + _taken);
    for (std::string& line : lines)
      std::transform(line.begin(), std::ranges::find(line, ' '), line.begin(), ::toupper);
    return lines;
  }

  /// The records so far, which are then forgotten.
  std::vector<std::string> take() {
    std::vector<std::string> taken = lines();
    _taken += std::ssize(taken);
    return taken;
  }

 private:
  static constexpr const char* LOGGERS[] = {"storage/database", "storage/migrations",
                                            "storage/storage_size"};

  std::shared_ptr<spdlog::sinks::ringbuffer_sink_mt> _sink =
      std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(1000);
  std::ptrdiff_t _taken = 0;
};

}  // namespace veldra
