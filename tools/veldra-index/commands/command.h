#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "veldra-index/parse/parse_files.h"

namespace veldra::tool {

/// How many answers may be asked for.
inline constexpr std::int64_t MOST_ANSWERS = 1'000'000;

/// What every command is told.
struct Options {
  std::filesystem::path directory = ".";
  std::optional<std::filesystem::path> db;
  bool json = false;
  bool color = false;
  bool quiet = false;
  int jobs = 1;           // threads that parse
  int file_limit_s = 30;  // that ctags may take for one file
};

/// What parsing is allowed.
ParseLimits limits_of(const Options& options);

/// An option, or a word that a command takes. Parser, help, man page and completions are made of
/// it.
struct Argument {
  /// What is filled in. A flag is a bool, or an int that counts how often it was given; what the
  /// target holds beforehand is the default.
  using Target = std::variant<bool*, int*, std::int64_t*, std::string*, std::optional<std::string>*,
                              std::filesystem::path*, std::optional<std::filesystem::path>*>;
  enum class Completion { None, File, Directory };

  std::string names;  // "-n,--limit"; without a dash it is a word at its place: "TEXT"
  std::string value;  // what an option's value is called: "N"; empty for flags and words
  std::string text;   // what it is for, without a dot at the end
  Target target;

  bool required = false;
  Completion completion = Completion::None;
  std::vector<std::string> choices = {};                            // the only values, if any
  std::optional<std::pair<std::int64_t, std::int64_t>> range = {};  // of a number
  std::string standard = {};  // the default in words, where it is not what `target` holds

  bool is_option() const { return names.front() == '-'; }
  bool is_flag() const { return is_option() && value.empty(); }
  /// "-n" and "--limit".
  std::vector<std::string> spellings() const;
  /// The default as people read it; empty when there is none to tell.
  std::string default_text() const;
};

/// A line as it is typed, and what it finds.
struct Example {
  std::string line;
  std::string meaning = {};
};

/// What a user can ask for, said once.
struct Command {
  std::string name;
  std::string summary;  // a line of the help
  std::string details;  // a paragraph of the man page, plain text
  std::vector<Example> examples;
  std::vector<Argument> arguments;  // its own: the repository and the options of all are not here
  std::string exit_status;          // beyond what holds for all; may be empty

  /// True for one that can be asked about a part of the repository.
  bool asks = false;

  /// Prints to standard output and returns the exit status. Throws `Failure`, `Interrupted` and the
  /// layer's errors.
  std::function<int()> run;
};

/// The commands, each in the file of its name. Their answers follow `options`, which they refer to.
Command rebuild_command(const Options& options);
Command update_command(const Options& options);
Command stats_command(const Options& options);
Command search_command(const Options& options);
Command symbols_command(const Options& options);
Command refs_command(const Options& options);
Command health_command(const Options& options);
Command errors_command(const Options& options);
Command check_command(const Options& options);
Command compact_command(const Options& options);
Command clear_command(const Options& options);
Command sql_command(const Options& options);
Command export_command(const Options& options);
Command import_command(const Options& options);

}  // namespace veldra::tool
