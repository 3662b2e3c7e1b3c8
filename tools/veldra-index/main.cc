// The command line: what is asked for, and how an error reads.
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

#include "veldra-index/commands/commands.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/error_text.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/progress.h"
#include "veldra-index/tree/index_place.h"

namespace veldra::tool {
namespace {

constexpr int MOST_JOBS = 16;
constexpr int MOST_ANSWERS = 1'000'000;
constexpr int MOST_CONTEXT = 1000;

/// What the command line fills in.
struct Request {
  Options options;
  SearchOptions search;
  SymbolsOptions symbols;
  std::string name;                 // of refs
  std::optional<std::string> file;  // of errors
  std::string query;                // of sql
  bool yes = false;                 // of clear
  int verbose = 0;
  std::string color = "auto";
  std::function<int()> run;
};

bool wants_color(const std::string& when) {
  if (when != "auto") return when == "always";
  const char* const terminal =
      std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): one thread yet
  return ::isatty(STDOUT_FILENO) == 1 &&
         std::getenv("NO_COLOR") == nullptr &&  // NOLINT(concurrency-mt-unsafe)
         terminal != nullptr && std::string_view(terminal) != "dumb";
}

/// The layer's log lines go to standard error, where they do not mix with answers.
void set_up_logging(const Request& request) {
  const auto logger = spdlog::stderr_logger_mt("veldra-index");
  logger->set_pattern("%l: %v");
  spdlog::set_default_logger(logger);
  const auto level = request.verbose > 1   ? spdlog::level::debug
                     : request.verbose > 0 ? spdlog::level::info
                                           : spdlog::level::warn;
  spdlog::set_level(request.options.quiet ? spdlog::level::err : level);
}

std::string version_text() {
  Connection connection(":memory:");
  const auto row = connection.execute("SELECT sqlite_version()").fetchone();
  return "veldra-index " VELDRA_VERSION " (SQLite " + std::string((*row)[0].as_text()) + ")";
}

CLI::App* add_command(CLI::App& app, Request& request, const std::string& name,
                      const std::string& description, const std::string& examples,
                      std::function<int()> run) {
  CLI::App* const command = app.add_subcommand(name, description);
  command->footer("Examples:\n" + examples);
  command->parse_complete_callback([&request, run = std::move(run)] { request.run = run; });
  return command;
}

void add_directory(CLI::App* command, Request& request) {
  command->add_option("DIR", request.options.directory,
                      "The repository (default: the current directory)");
}

void add_building_commands(CLI::App& app, Request& request) {
  Options& options = request.options;
  add_directory(
      add_command(
          app, request, "rebuild", "Index the whole tree anew",
          "  veldra-index rebuild\n  veldra-index rebuild ~/src/project --db /tmp/project.db",
          [&] { return rebuild(options); }),
      request);
  add_directory(add_command(app, request, "update", "Index only what has changed",
                            "  veldra-index update\n  veldra-index update ~/src/project --json",
                            [&] { return update(options); }),
                request);
  CLI::App* const clearing =
      add_command(app, request, "clear", "Empty the index", "  veldra-index clear --yes", [&] {
        if (!request.yes) throw Failure("clear empties the index: add --yes to do it", EXIT_USAGE);
        return clear(options);
      });
  add_directory(clearing, request);
  clearing->add_flag("--yes", request.yes, "Really empty it");
  add_directory(add_command(app, request, "compact", "Give free pages back to the file system",
                            "  veldra-index compact", [&] { return compact(options); }),
                request);
}

void add_asking_commands(CLI::App& app, Request& request) {
  Options& options = request.options;
  CLI::App* const searching = add_command(
      app, request, "search", "Find text in the files",
      "  veldra-index search 'open file'              both words, anywhere in a piece of a file\n"
      "  veldra-index search '\"open file\"'            the phrase\n"
      "  veldra-index search 'swap*' --path 'src/**'  words that begin so, in some files\n"
      "  veldra-index search 'foo->bar'               text as it stands\n"
      "  veldra-index search --fts 'open NEAR file'   the full-text syntax of SQLite",
      [&] { return search(options, request.search); });
  searching->add_option("TEXT", request.search.text, "What to look for")->required();
  add_directory(searching, request);
  searching->add_flag("--fts", request.search.fts, "TEXT is full-text syntax");
  searching->add_option("--path", request.search.path, "Only files whose path matches the pattern");
  searching->add_option("-n,--limit", request.search.limit, "At most so many pieces of files")
      ->check(CLI::Range(1, MOST_ANSWERS));
  searching->add_option("-C,--context", request.search.context, "Lines to show around each hit")
      ->check(CLI::Range(0, MOST_CONTEXT));

  CLI::App* const naming =
      add_command(app, request, "symbols", "Find definitions by name",
                  "  veldra-index symbols connect\n  veldra-index symbols Database::connect\n"
                  "  veldra-index symbols 'open_*' --kind function --path 'src/**'",
                  [&] { return symbols(options, request.symbols); });
  naming->add_option("NAME", request.symbols.name, "A name, or a pattern with * and ?")->required();
  add_directory(naming, request);
  naming->add_option("--kind", request.symbols.kind, "Only this kind: function, class, …");
  naming->add_option("--path", request.symbols.path, "Only files whose path matches the pattern");
  naming->add_option("-n,--limit", request.symbols.limit, "At most so many")
      ->check(CLI::Range(1, MOST_ANSWERS));

  CLI::App* const referring =
      add_command(app, request, "refs", "Show who imports a file or module",
                  "  veldra-index refs src/database.h\n  veldra-index refs vector",
                  [&] { return refs(options, request.name); });
  referring->add_option("NAME", request.name, "A file's path or its end, or a module")->required();
  add_directory(referring, request);

  CLI::App* const querying =
      add_command(app, request, "sql", "Ask the index a question in SQL, read-only",
                  "  veldra-index sql 'SELECT kind, count(*) FROM symbols GROUP BY kind'",
                  [&] { return sql(options, request.query); });
  querying->add_option("QUERY", request.query, "One SELECT, VALUES, WITH or EXPLAIN")->required();
  add_directory(querying, request);
}

void add_health_commands(CLI::App& app, Request& request) {
  Options& options = request.options;
  add_directory(add_command(app, request, "stats", "Count what is in the index",
                            "  veldra-index stats\n  veldra-index stats --json",
                            [&] { return stats(options); }),
                request);
  add_directory(add_command(app, request, "health", "Report on the state of the index and its file",
                            "  veldra-index health\n  veldra-index health --json",
                            [&] { return health(options); }),
                request);
  CLI::App* const listing =
      add_command(app, request, "errors", "List the problems that were met in files",
                  "  veldra-index errors\n  veldra-index errors src/a.cc",
                  [&] { return errors(options, request.file); });
  listing->add_option("FILE", request.file, "Only this file of the repository");
  add_directory(listing, request);
  add_directory(add_command(app, request, "check", "Check that the index is sound",
                            "  veldra-index check", [&] { return check(options); }),
                request);
}

/// CLI11's words, and where more is to be found.
int report_usage(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv) {
  std::string text = error.what();
  if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-') {
    text = "there is no command `" + std::string(argv[1]) + "`";
  } else if (std::any_of(argv + 2, argv + argc,
                         [](const char* word) { return word[0] == '-' && word[1] != '-'; })) {
    text += " (put -- before a text that begins with a dash)";
  }
  const std::string command =
      app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name() + " ";
  std::cerr << "veldra-index: " << text << "; see `veldra-index " << command << "--help`\n";
  return EXIT_USAGE;
}

int run_command(Request& request) {
  const auto say = [](const std::string& text) { std::cerr << "veldra-index: " << text << '\n'; };
  try {
    return request.run();
  } catch (const Interrupted& interrupted) {
    say("interrupted: the index is as before");
    return 128 + interrupted.signal_number;
  } catch (const Failure& failure) {
    say(failure.what());
    return failure.status;
  } catch (const std::exception& error) {
    const IndexPlace place = find_index(request.options.directory, request.options.db);
    say(error_text(error, place.db.string()));
    return EXIT_FAILED;
  }
}

int run(int argc, char** argv) {
  Request request;
  CLI::App app("Indexes the source files of a repository and answers questions about them.",
               "veldra-index");
  app.footer(
      "The index is DIR/memory/codebase-index/index.db unless --db FILE names another.\n"
      "`veldra-index COMMAND --help` shows examples.");
  app.set_version_flag("--version", version_text);
  app.require_subcommand(1);
  app.fallthrough();
  app.add_option("--db", request.options.db, "The index file");
  app.add_flag("--json", request.options.json, "Answer in JSON");
  app.add_flag("-q,--quiet", request.options.quiet, "No progress, no summary, no warnings");
  app.add_flag("-v,--verbose", request.verbose, "Say what is done; twice for more");
  app.add_option("--color", request.color, "Colours: auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  const int cores = static_cast<int>(std::thread::hardware_concurrency());
  request.options.jobs = std::clamp(cores, 1, MOST_JOBS);
  app.add_option("-j,--jobs", request.options.jobs, "Threads that parse (default: one per core)")
      ->check(CLI::Range(1, MOST_JOBS));
  add_building_commands(app, request);
  add_asking_commands(app, request);
  add_health_commands(app, request);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    return report_usage(app, error, argc, argv);
  }
  request.options.color = wants_color(request.color);
  Progress::set_quiet(request.options.quiet);
  set_up_logging(request);
  int status = run_command(request);
  if (!std::cout.flush() && errno != EPIPE) {  // a reader that has seen enough is no failure
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
