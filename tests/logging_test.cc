// Lines go where the host wants them, one record each, exactly as they were composed.
#include "veldra/logging.h"

#include <gmock/gmock.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <latch>
#include <sstream>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

TEST(LoggingTest, WithoutALoggerOfTheHostOneSharesTheDefaultLoggersSinksAndPattern) {
  std::ostringstream out;
  const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(out);
  sink->set_pattern("<%n %l> %v");
  const auto previous = spdlog::default_logger();
  spdlog::set_default_logger(std::make_shared<spdlog::logger>("host", sink));
  std::string expected;
  for (int round = 0; round < 100; ++round) {
    spdlog::drop("storage/migrations");
    // Every thread finds no logger yet: all of them register one, and one counts.
    std::latch together(4);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      expected += "<storage/migrations error> 100% {} of %s\n";
      threads.emplace_back([&together] {
        together.arrive_and_wait();
        log_line(LogUnit::Migrations, LogLevel::Error, "100% {} of %s");
      });
    }
  }
  log_line(LogUnit::Migrations, LogLevel::Debug, "below the host's level");
  EXPECT_EQ(spdlog::get("storage/migrations")->sinks(), spdlog::default_logger()->sinks());
  spdlog::drop("storage/migrations");
  spdlog::set_default_logger(nullptr);
  log_line(LogUnit::Migrations, LogLevel::Error, "nobody listens");
  spdlog::set_default_logger(previous);

  EXPECT_EQ(out.str(), expected);
}

TEST(LoggingTest, AnAttachedErrorIsNamedByItsDocumentedTypeInTheSameRecord) {
  const LogCapture log;
  const OperationalError locked("database is locked", 5);
  log_line(LogUnit::Database, LogLevel::Warning, "Compaction skipped", locked, "VACUUM");
  log_line(LogUnit::StorageSize, LogLevel::Info, "done");
  EXPECT_THAT(log.lines(), testing::ElementsAre("WARNING storage/database: Compaction skipped\n"
                                                "OperationalError: database is locked\nVACUUM",
                                                "INFO storage/storage_size: done"));
  EXPECT_EQ(error_type_name(FileNotFoundError("")), "FileNotFoundError");
  EXPECT_EQ(error_type_name(std::filesystem::filesystem_error("", {})), "OSError");
  EXPECT_EQ(error_type_name(std::bad_alloc()), "std::bad_alloc");
}

TEST(LoggingTest, AQuotedTextStaysOnOneLine) {
  EXPECT_EQ(quoted("it's a \\ and\r\n\ta tab"), R"('it\'s a \\ and\r\n\ta tab')");
  EXPECT_EQ(quoted(std::string_view("\0\x1b[31m\x7f", 7)), R"('\x00\x1b[31m\x7f')");
  EXPECT_EQ(quoted("gr\xc3\xbc\xc3\x9f"), "'gr\xc3\xbc\xc3\x9f'");
}

}  // namespace
}  // namespace veldra
