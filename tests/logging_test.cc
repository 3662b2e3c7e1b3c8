// Lines go where the host wants them, exactly as they were composed.
#include "veldra/logging.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <sstream>
#include <thread>

namespace veldra {

TEST(LoggingTest, WithoutALoggerOfTheHostOneSharesTheDefaultLoggersSinksAndPattern) {
  std::ostringstream out;
  const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(out);
  sink->set_pattern("<%n %l> %v");
  const auto previous = spdlog::default_logger();
  spdlog::set_default_logger(std::make_shared<spdlog::logger>("host", sink));
  spdlog::drop("storage/migrations");
  const auto log = [] { log_line(LogUnit::Migrations, LogLevel::Error, "100% {} of %s"); };
  {
    // Both find no logger yet and register one.
    const std::jthread another(log);
    log();
  }
  log_line(LogUnit::Migrations, LogLevel::Debug, "below the host's level");
  spdlog::drop("storage/migrations");
  spdlog::set_default_logger(nullptr);
  log_line(LogUnit::Migrations, LogLevel::Error, "nobody listens");
  spdlog::set_default_logger(previous);

  const std::string line = "<storage/migrations error> 100% {} of %s\n";
  EXPECT_EQ(out.str(), line + line);
}

}  // namespace veldra
