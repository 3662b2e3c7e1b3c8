// Signals, logging, and how an error reads.
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include "veldra-index/arguments.h"
#include "veldra-index/generate.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/error_text.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/output.h"
#include "veldra-index/terminal/progress.h"
#include "veldra-index/tree/index_place.h"

namespace veldra::tool {
namespace {

bool wants_color(const std::string& when) {
  if (when != "auto") return when == "always";
  const char* const terminal =
      std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): one thread yet
  return ::isatty(STDOUT_FILENO) == 1 &&
         std::getenv("NO_COLOR") == nullptr &&  // NOLINT(concurrency-mt-unsafe)
         terminal != nullptr && std::string_view(terminal) != "dumb";
}

/// The layer's log lines go to standard error, where they do not mix with answers.
void set_up_logging(const CommandLine& line) {
  const auto logger = spdlog::stderr_logger_mt("veldra-index");
  logger->set_pattern("%l: %v");
  spdlog::set_default_logger(logger);
  const auto level = line.verbose > 1   ? spdlog::level::debug
                     : line.verbose > 0 ? spdlog::level::info
                                        : spdlog::level::warn;
  spdlog::set_level(line.options.quiet ? spdlog::level::err : level);
}

int run_command(const CommandLine& line) {
  const auto say = [](const std::string& text) { std::cerr << "veldra-index: " << text << '\n'; };
  try {
    return line.chosen->run();
  } catch (const Interrupted& interrupted) {
    say("interrupted: the index is as before");
    return 128 + interrupted.signal_number;
  } catch (const Failure& failure) {
    say(failure.what());
    return failure.status;
  } catch (const std::exception& error) {
    const IndexPlace place = index_of(line.options.directory, line.options.db).place;
    say(error_text(error, place.db.string()));
    return EXIT_FAILED;
  }
}

int run(int argc, char** argv) {
  CommandLine line;
  if (const std::optional<int> status = parse(line, argc, argv)) return *status;
  int status = EXIT_DONE;
  if (!line.generate.empty()) {
    std::cout << generate(line, line.generate);
  } else {
    line.options.color = wants_color(line.color);
    Progress::set_quiet(line.options.quiet);
    set_up_logging(line);
    status = run_command(line);
  }
  std::cout.flush();
  if (const int error = output_error(); error != 0 && error != EPIPE) {
    std::cerr << "veldra-index: the output could not be written; look at the disk it goes to\n";
    status = EXIT_FAILED;
  }
  return status;
}

}  // namespace
}  // namespace veldra::tool

int main(int argc, char** argv) {
  static_cast<void>(
      ::signal(SIGPIPE, SIG_IGN));  // a reader that went away ends a write, not the program
  const veldra::tool::InterruptWatch watch;
  try {
    return veldra::tool::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "veldra-index: " << error.what() << '\n';
    return veldra::tool::EXIT_FAILED;
  }
}
