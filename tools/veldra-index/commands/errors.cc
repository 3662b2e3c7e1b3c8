// veldra-index errors: the problems that were met in files.
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {

namespace {

int errors(const Options& options, const std::optional<std::string>& file) {
  // A directory where the file may be left out is the repository.
  const bool only_directory = file && std::filesystem::is_directory(*file);
  const IndexPlace place =
      find_index(only_directory ? std::filesystem::path(*file) : options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  const std::vector<Row> rows = index->fetchall(
      "SELECT file_path, line, error_type, message FROM index_errors"
      " WHERE ?1 IS NULL OR file_path = ?1 ORDER BY file_path, line, id",
      {only_directory ? std::nullopt : file});
  if (rows.empty() && file && !only_directory &&
      !index->fetchone("SELECT 1 FROM files WHERE path = ?", {*file})) {
    throw Failure("the index has no file " + *file +
                  ": give its path from the root of the repository");
  }
  if (options.json) {
    Json json = Json::array();
    for (const Row& row : rows) {
      json.push_back({{"file", to_json(row[0])},
                      {"line", to_json(row[1])},
                      {"type", to_json(row[2])},
                      {"message", to_json(row[3])}});
    }
    print_json(json);
    return EXIT_DONE;
  }
  const Style style(options.color);
  for (const Row& row : rows) {
    std::cout << style.path(to_text(row[0])) << ':';
    if (!row[1].is_null()) std::cout << style.number(to_text(row[1])) << ':';
    std::cout << ' ' << to_text(row[2]) << ": " << one_line(to_text(row[3])) << '\n';
  }
  if (rows.empty() && !options.quiet) std::cout << "no problems\n";
  return EXIT_DONE;
}

}  // namespace

Command errors_command(const Options& options) {
  const auto file = std::make_shared<std::optional<std::string>>();
  return {
      .name = "errors",
      .summary = "List the problems that were met in files",
      .details = "Of all files, or of one.",
      .examples = {{"veldra-index errors"}, {"veldra-index errors src/a.cc"}},
      .arguments = {{.names = "FILE",
                     .value = "",
                     .text = "Only this file of the repository",
                     .target = file.get(),
                     .completion = Argument::Completion::File}},
      .exit_status = "",
      .run = [&options, file] { return errors(options, *file); },
  };
}

}  // namespace veldra::tool
