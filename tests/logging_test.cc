// Lines go where the host wants them, exactly as they were composed.
#include "veldra/logging.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <sstream>
#include <thread>

#include "veldra/storage/database.h"

namespace veldra {

TEST(LoggingTest, TheHostMayTakeANameAtAnyTimeAndUntilThenItsDefaultLoggerCounts) {
  std::ostringstream out;
  const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(out);
  sink->set_pattern("<%n %l> %v");
  const auto previous = spdlog::default_logger();
  spdlog::set_default_logger(std::make_shared<spdlog::logger>("host", sink));
  spdlog::drop("storage/migrations");
  const auto log = [] { log_line(LogUnit::Migrations, LogLevel::Error, "100% {} of %s"); };
  {
    const std::jthread another(log);
    log();
  }
  spdlog::register_logger(std::make_shared<spdlog::logger>("storage/migrations", sink));
  log();
  log_line(LogUnit::Migrations, LogLevel::Debug, "below the host's level");
  spdlog::drop("storage/migrations");
  spdlog::set_default_logger(nullptr);
  log_line(LogUnit::Migrations, LogLevel::Error, "nobody listens");
  spdlog::set_default_logger(previous);

  const std::string line = "<storage/migrations error> 100% {} of %s\n";
  EXPECT_EQ(out.str(), line + line + line);
}

TEST(LoggingDeathTest, AStaticDatabaseLogsToTheEnd) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process in which nobody has logged yet
  const auto compact_at_exit = [] {
    static struct Service {
      Database db{"never connected"};
      ~Service() { db.compact(); }
    } service;
    service.db.compact();
    std::exit(0);
  };
  EXPECT_EXIT(compact_at_exit(), testing::ExitedWithCode(0), "");
}

}  // namespace veldra
