#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace veldra {

/// One figure for the table of docs/testing.md: scripts/fault-table.sh collects these lines.
inline void measured(const std::string& kind, const std::string& operation,
                     const std::string& figures) {
  std::printf("measured|%s|%s|%s\n", kind.c_str(), operation.c_str(), figures.c_str());
}

/// A number from the environment, so that one can ask for a longer run.
inline long asked_for(const char* variable, long otherwise) {
  const char* const text = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe)
  return text != nullptr ? std::strtol(text, nullptr, 10) : otherwise;
}

}  // namespace veldra
