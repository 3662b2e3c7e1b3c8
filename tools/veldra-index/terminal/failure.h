#pragma once

#include <stdexcept>
#include <string>

namespace veldra::tool {

/// The tool's exit statuses; an interrupted one is 128 plus the signal's number.
inline constexpr int EXIT_DONE = 0;
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_USAGE = 2;

/// Ends the command with one line on standard error. The text says what was refused and what to do.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message, int exit_status = EXIT_FAILED)
      : std::runtime_error(message), status(exit_status) {}

  const int status;
};

/// A signal asked the command to stop; thrown where nothing is half done.
class Interrupted : public std::runtime_error {
 public:
  explicit Interrupted(int signal) : std::runtime_error("interrupted"), signal_number(signal) {}

  const int signal_number;
};

}  // namespace veldra::tool
