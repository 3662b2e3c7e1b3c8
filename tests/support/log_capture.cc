#include "support/log_capture.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cctype>

namespace veldra {
namespace {

constexpr const char* LOGGERS[] = {"storage/database", "storage/migrations",
                                   "storage/storage_size"};

}  // namespace

LogCapture::LogCapture() : _sink(std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(1000)) {
  _sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
      "%l %n: %v", spdlog::pattern_time_type::local, ""));
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
  std::vector<std::string> lines = _sink->last_formatted();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(_taken));
  for (std::string& line : lines)
    std::transform(line.begin(), std::ranges::find(line, ' '), line.begin(), ::toupper);
  return lines;
}

std::vector<std::string> LogCapture::take() {
  std::vector<std::string> taken = lines();
  _taken += taken.size();
  return taken;
}

}  // namespace veldra
