#pragma once

#include <spdlog/sinks/ringbuffer_sink.h>

#include <memory>
#include <string>
#include <vector>

namespace veldra {

/// Takes the layer's log lines of every level for as long as it lives, as a host's loggers would.
/// One at a time in a process; it keeps the last thousand.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  /// The records so far: "INFO storage/database: Schema version 3 (recorded 1)".
  std::vector<std::string> lines() const;

  /// The records so far, which are then forgotten.
  std::vector<std::string> take();

 private:
  std::shared_ptr<spdlog::sinks::ringbuffer_sink_mt> _sink;
  std::size_t _taken = 0;
};

}  // namespace veldra
