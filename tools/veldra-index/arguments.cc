// The command line, from its definition to its parser.
#include "veldra-index/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <thread>

#include "veldra-index/generate.h"
#include "veldra-index/terminal/failure.h"
#include "veldra/sqlite/connection.h"

namespace veldra::tool {
namespace {

constexpr int MOST_JOBS = 16;

CLI::Option* declare(CLI::App& app, const Argument& argument) {
  return std::visit(
      [&](auto* target) {
        using Target = std::remove_pointer_t<decltype(target)>;
        if constexpr (std::is_same_v<Target, bool> || std::is_same_v<Target, int>) {
          if (argument.is_flag()) return app.add_flag(argument.names, *target, argument.text);
        }
        return app.add_option(argument.names, *target, argument.text);
      },
      argument.target);
}

void add(CLI::App& app, const Argument& argument) {
  CLI::Option* const option = declare(app, argument);
  option->required(argument.required);
  if (argument.is_flag()) return;
  option->type_name(argument.value);
  option->default_str(argument.default_text());
  // The descriptions of checks would stand in the help, and in the words of a compiler.
  if (argument.range)
    option->check(CLI::Range(argument.range->first, argument.range->second).description(""));
  if (!argument.choices.empty()) option->check(CLI::IsMember(argument.choices).description(""));
}

std::string footer_of(const Command& command) {
  std::size_t width = 0;
  for (const Example& example : command.examples) width = std::max(width, example.line.size());
  std::string text = "Examples:";
  for (const Example& example : command.examples) {
    text += "\n  " + example.line;
    if (example.meaning.empty()) continue;
    text += std::string(width + 2 - example.line.size(), ' ') + example.meaning;
  }
  return text;
}

void add(CLI::App& app, CommandLine& line, const Command& command) {
  CLI::App* const sub = app.add_subcommand(command.name, command.summary);
  sub->footer(footer_of(command));
  sub->parse_complete_callback([&line, &command] { line.chosen = &command; });
  for (const Argument& argument : command.arguments) add(*sub, argument);
}

/// CLI11's words, and where more is to be found.
int report_usage(const CLI::App& app, const CLI::ParseError& error, int argc,
                 const char* const* argv) {
  std::string text = error.what();
  if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-')
    text = "there is no command `" + std::string(argv[1]) + "`";
  else if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::ValidationError) &&
           std::any_of(argv + std::min(argc, 2), argv + argc,
                       [](const char* word) { return word[0] == '-' && word[1] != '-'; }))
    text += " (put -- before a text that begins with a dash)";
  const std::string command =
      app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name() + " ";
  std::cerr << "veldra-index: " << text << "; see `veldra-index " << command << "--help`\n";
  return EXIT_USAGE;
}

/// The last word of a command.
Argument place_of(const Command& command, Options& options) {
  using Completion = Argument::Completion;
  return {.names = command.asks ? "PATH" : "DIR",
          .value = "",
          .text = command.asks ? "The repository, or a folder or file in it" : "The repository",
          .target = &options.directory,
          .completion = command.asks ? Completion::File : Completion::Directory,
          .standard = "the current directory"};
}

}  // namespace

CommandLine::CommandLine()
    : common{{.names = "--db",
              .value = "FILE",
              .text = "The index file",
              .target = &options.db,
              .completion = Argument::Completion::File,
              .standard = "memory/codebase-index/index.db in the repository"},
             {"--json", "", "Answer in JSON, on standard output", &options.json},
             {"-q,--quiet", "", "No progress, no summary, no warnings", &options.quiet},
             {"-v,--verbose", "", "Say what is done; twice for more", &verbose},
             {.names = "--color",
              .value = "WHEN",
              .text = "Colours: auto, always or never; auto heeds NO_COLOR",
              .target = &color,
              .choices = {"auto", "always", "never"}},
             {.names = "-j,--jobs",
              .value = "N",
              .text = "Threads that parse, each with a ctags of its own",
              .target = &options.jobs,
              .range = {{1, MOST_JOBS}},
              .standard = "one per core"},
             {.names = "--file-limit",
              .value = "SECONDS",
              .text = "Do without the symbols of a file that takes ctags longer",
              .target = &options.file_limit_s,
              .range = {{1, 3600}}}},
      commands{rebuild_command(options), update_command(options),  stats_command(options),
               search_command(options),  symbols_command(options), refs_command(options),
               health_command(options),  errors_command(options),  check_command(options),
               compact_command(options), clear_command(options),   sql_command(options),
               export_command(options),  import_command(options)} {
  for (Command& command : commands) command.arguments.push_back(place_of(command, options));
  options.jobs = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, MOST_JOBS);
}

std::optional<int> parse(CommandLine& line, int argc, const char* const* argv) {
  CLI::App app("Indexes the source files of a repository and answers questions about them.",
               "veldra-index");
  app.footer("`veldra-index COMMAND --help` shows examples.");
  app.set_version_flag("--version", version_text);
  app.require_subcommand(0, 1);
  app.fallthrough();
  app.add_option("--generate", line.generate)
      ->check(CLI::IsMember(document_kinds()))
      ->group("");  // not shown: what a build asks for
  for (const Argument& argument : line.common) add(app, argument);
  for (const Command& command : line.commands) add(app, line, command);
  try {
    app.parse(argc, argv);
    if (line.chosen == nullptr && line.generate.empty()) throw CLI::RequiredError::Subcommand(1);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    return report_usage(app, error, argc, argv);
  }
  return std::nullopt;
}

std::string version_text() {
  Connection connection(":memory:");
  const auto row = connection.execute("SELECT sqlite_version()").fetchone();
  return "veldra-index " VELDRA_VERSION " (SQLite " + std::string((*row)[0].as_text()) + ")";
}

}  // namespace veldra::tool
