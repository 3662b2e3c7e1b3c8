#include "support/log_capture.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>
#include <utility>

namespace veldra {
namespace {

constexpr const char* LOGGERS[] = {"storage/database", "storage/migrations",
                                   "storage/storage_size"};

const char* name_of(spdlog::level::level_enum level) {
  switch (level) {
    case spdlog::level::debug:
      return "DEBUG ";
    case spdlog::level::info:
      return "INFO ";
    case spdlog::level::warn:
      return "WARNING ";
    case spdlog::level::err:
      return "ERROR ";
    default:
      return "? ";
  }
}

}  // namespace

class LogCapture::Sink : public spdlog::sinks::base_sink<std::mutex> {
 public:
  std::vector<std::string> lines() {
    const std::lock_guard guard(mutex_);
    return _lines;
  }

  std::vector<std::string> take() {
    const std::lock_guard guard(mutex_);
    return std::exchange(_lines, {});
  }

 private:
  void sink_it_(const spdlog::details::log_msg& record) override {
    std::string line = name_of(record.level);
    line.append(record.logger_name.data(), record.logger_name.size()).append(": ");
    _lines.push_back(line.append(record.payload.data(), record.payload.size()));
  }
  void flush_() override {}

  std::vector<std::string> _lines;  // guarded by mutex_ of the base
};

LogCapture::LogCapture() : _sink(std::make_shared<Sink>()) {
  for (const char* name : LOGGERS) {
    spdlog::drop(name);
    const auto logger = std::make_shared<spdlog::logger>(name, _sink);
    logger->set_level(spdlog::level::trace);
    spdlog::register_logger(logger);
  }
}

LogCapture::~LogCapture() {
  for (const char* name : LOGGERS) spdlog::drop(name);
}

std::vector<std::string> LogCapture::lines() const {
  return _sink->lines();
}

std::vector<std::string> LogCapture::take() {
  return _sink->take();
}

}  // namespace veldra
