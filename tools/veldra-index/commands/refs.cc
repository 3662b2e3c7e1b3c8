// veldra-index refs: who imports a file or a module.
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/search/importers.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {

namespace {

int refs(const Options& options, const std::string& name) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  std::vector<Importer> importers;
  index->snapshot([&](Snapshot& state) { importers = importers_of(state, name); });
  if (options.json) {
    Json json = Json::array();
    for (const Importer& importer : importers) {
      json.push_back({{"file", importer.file},
                      {"line", importer.line ? Json(*importer.line) : Json()},
                      {"imports", importer.imports},
                      {"external", importer.external}});
    }
    print_json(json);
    return EXIT_DONE;
  }
  const Style style(options.color);
  for (const Importer& importer : importers) {
    const std::string line = importer.line ? std::to_string(*importer.line) : std::string();
    std::cout << style.path(one_line(importer.file)) << ':' << style.number(line) << ": imports "
              << one_line(importer.imports) << '\n';
  }
  if (importers.empty() && !options.quiet) std::cout << "nobody imports " << name << '\n';
  return EXIT_DONE;
}

}  // namespace

Command refs_command(const Options& options) {
  const auto name = std::make_shared<std::string>();
  return {
      .name = "refs",
      .summary = "Show who imports a file or module",
      .details = "A file is named by its path or the end of it, a module as an import names it.",
      .examples = {{"veldra-index refs src/database.h"}, {"veldra-index refs vector"}},
      .arguments = {{"NAME", "", "A file's path or its end, or a module", name.get(), true}},
      .exit_status = "",
      .run = [&options, name] { return refs(options, *name); },
  };
}

}  // namespace veldra::tool
