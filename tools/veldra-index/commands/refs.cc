// veldra-index refs: who imports a file or a module.
#include <fmt/ranges.h>

#include <iostream>
#include <memory>

#include "veldra-index/commands/answer.h"
#include "veldra-index/search/importers.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"
#include "veldra/utils/path_filter.h"

namespace veldra::tool {

namespace {

int refs(const Options& options, const std::string& name, bool update) {
  AskedIndex asked(options, update);
  std::vector<Importer> importers = importers_of(asked.index, name);
  std::erase_if(importers, [&](const Importer& importer) {
    return (!asked.found.below.empty() && !path_is_under(importer.file, asked.found.below)) ||
           !asked.freshness.has(importer.file, importer.line);
  });
  if (const auto unknown = languages_without_imports(asked.index); !unknown.empty())
    say_beside(options, fmt::format("what {} files import is not known", fmt::join(unknown, ", ")));
  if (options.json) {
    Json json = Json::array();
    for (const Importer& importer : importers) {
      json.push_back({{"file", importer.file},
                      {"line", importer.line ? Json(*importer.line) : Json()},
                      {"imports", importer.imports},
                      {"external", importer.external}});
    }
    print_json(json);
    return end_answer(options, asked, std::ssize(importers), "nobody imports " + name);
  }
  const Style style(options.color);
  for (const Importer& importer : importers) {
    const std::string line = importer.line ? std::to_string(*importer.line) : std::string();
    std::cout << style.path(one_line(importer.file)) << ':' << style.number(line) << ": imports "
              << one_line(importer.imports) << '\n';
  }
  return end_answer(options, asked, std::ssize(importers), "nobody imports " + name);
}

}  // namespace

Command refs_command(const Options& options) {
  const auto name = std::make_shared<std::string>();
  const auto update = std::make_shared<bool>(false);
  return {
      .name = "refs",
      .summary = "Show who imports a file or module",
      .details = "A file is named by its path or the end of it, a module as an import names it.",
      .examples = {{"veldra-index refs src/database.h"}, {"veldra-index refs vector"}},
      .arguments = {{"NAME", "", "A file's path or its end, or a module", name.get(), true},
                    update_argument(update.get())},
      .exit_status = "1 when nothing was found",
      .asks = true,
      .run = [&options, name, update] { return refs(options, *name, *update); },
  };
}

}  // namespace veldra::tool
