#pragma once

#include <optional>
#include <string>
#include <vector>

#include "veldra-index/commands/command.h"

namespace veldra::tool {

/// Everything that can stand on the command line: the one place that parser, help, man page and
/// completions are made from.
///
/// Neither copied nor moved: commands and arguments refer to what they fill in.
struct CommandLine {
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  Options options;
  int verbose = 0;
  std::string color = "auto";
  std::string generate;  // "man", "bash", …: print that, and nothing else

  std::vector<Argument> common;     // of every command
  std::vector<Command> commands;    // in the order of the help
  const Command* chosen = nullptr;  // after parsing
};

/// Fills `line` in. Help, version and wrong usage are answered at once; their exit status is given.
std::optional<int> parse(CommandLine& line, int argc, const char* const* argv);

/// The version of the tool and that of SQLite.
std::string version_text();

}  // namespace veldra::tool
