#pragma once

#include <stdexcept>
#include <string>

namespace veldra::tool {

/// The tool's exit statuses; an interrupted one is 128 plus the signal's number.
inline constexpr int EXIT_DONE = 0;
inline constexpr int EXIT_NOTHING = 1;  // was found, as grep has it
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_USAGE = 2;

/// Ends the command with one line on standard error. The text says what was refused and what to do.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message, int exit_status = EXIT_FAILED)
      : std::runtime_error(message), status(exit_status) {}

  const int status;
};

}  // namespace veldra::tool
