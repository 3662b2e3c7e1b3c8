#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace veldra {

/// One figure for the table of docs/testing.md: scripts/fault-table.sh collects these lines.
inline void measured(const std::string& what, const std::string& operation, long tried,
                     const std::string& outcome) {
  std::printf("measured|%s|%s|%ld|%s|%d\n", what.c_str(), operation.c_str(), tried, outcome.c_str(),
              testing::Test::HasFailure() ? 1 : 0);
}

/// A number from the environment, so that one can ask for a longer run.
inline long asked_for(const char* variable, long otherwise) {
  const char* const text = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe)
  return text != nullptr ? std::strtol(text, nullptr, 10) : otherwise;
}

}  // namespace veldra
