// veldra-index errors: the problems that were met in files.
#include <iostream>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/read_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {

namespace {

int errors(const Options& options) {
  const FoundIndex found = index_of(options.directory, options.db);
  ReadIndex index(found.place);
  const std::vector<Row> rows = index.fetchall(
      "SELECT file_path, line, error_type, message FROM index_errors"
      " WHERE ?1 = '' OR path_under(file_path, ?1) ORDER BY file_path, line, id",
      {found.below});
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
  return {
      .name = "errors",
      .summary = "List the problems that were met in files",
      .details = "Of all files, or of those of a folder, or of one.",
      .examples = {{"veldra-index errors"}, {"veldra-index errors src/a.cc"}},
      .arguments = {},
      .exit_status = "",
      .asks = true,
      .run = [&options] { return errors(options); },
  };
}

}  // namespace veldra::tool
