// veldra-index refs: who imports a file or a module.
#include <fmt/ranges.h>

#include <iostream>
#include <memory>

#include "veldra-index/commands/answer.h"
#include "veldra-index/search/importers.h"
#include "veldra-index/search/uses.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"
#include "veldra/utils/path_filter.h"

namespace veldra::tool {

namespace {

struct RefsRequest {
  UsesOptions uses;
  bool update = false;
};

void print_json_of(const std::vector<Importer>& importers, const std::vector<Use>& uses) {
  Json json = Json::array();
  for (const Importer& importer : importers) {
    json.push_back({{"file", importer.file},
                    {"line", importer.line ? Json(*importer.line) : Json()},
                    {"imports", importer.imports},
                    {"external", importer.external}});
  }
  for (const Use& use : uses) {
    json.push_back({{"file", use.file},
                    {"line", use.line.number},
                    {"text", use.line.text},
                    {"definition", use.is_definition}});
  }
  print_json(json);
}

void print(const Style& style, const std::vector<Importer>& importers,
           const std::vector<Use>& uses) {
  for (const Importer& importer : importers) {
    const std::string line = importer.line ? std::to_string(*importer.line) : std::string();
    std::cout << style.path(one_line(importer.file)) << ':' << style.number(line) << ": imports "
              << one_line(importer.imports) << '\n';
  }
  for (const Use& use : uses) {
    std::cout << style.path(one_line(use.file)) << ':'
              << style.number(std::to_string(use.line.number)) << ": "
              << (use.is_definition ? style.hit("defines") : "uses") << ": "
              << shown(use.line, style) << '\n';
  }
}

int refs(const Options& options, const RefsRequest& request) {
  AskedIndex asked(options, request.update);
  const std::string& name = request.uses.name;
  UsesOptions query = request.uses;
  query.below = asked.found.below;
  query.threads = options.jobs;
  std::vector<Importer> importers = importers_of(asked.index, name);
  std::erase_if(importers, [&](const Importer& importer) {
    return (!query.below.empty() && !path_is_under(importer.file, query.below)) ||
           !asked.freshness.has(importer.file, importer.line);
  });
  Uses uses = uses_of(asked.index, query);
  std::erase_if(uses.lines,
                [&](const Use& use) { return !asked.freshness.has(use.file, use.line.number); });
  if (uses.found > query.limit) say_more(options, query.limit, uses.found, uses.all_counted);
  if (const auto unknown = languages_without_imports(asked.index); !unknown.empty())
    say_beside(options, fmt::format("what {} files import is not known", fmt::join(unknown, ", ")));
  options.json ? print_json_of(importers, uses.lines)
               : print(Style(options.color), importers, uses.lines);
  return end_answer(options, asked, std::ssize(importers) + std::ssize(uses.lines),
                    "nobody imports " + name + ", and no symbol of that name is used");
}

}  // namespace

Command refs_command(const Options& options) {
  const auto request = std::make_shared<RefsRequest>();
  return {
      .name = "refs",
      .summary = "Show who imports a file or module, or uses a symbol",
      .details =
          "A file is named by its path or the end of it, a module as an import names it. Of a "
          "symbol "
          "the lines are shown that have its name, those that define it marked.",
      .examples = {{"veldra-index refs src/database.h"},
                   {"veldra-index refs vector"},
                   {"veldra-index refs Database::connect src"}},
      .arguments = {{"NAME", "", "A file's path or its end, a module, or a symbol",
                     &request->uses.name, true},
                    {.names = "-n,--limit",
                     .value = "N",
                     .text = "At most so many lines that use a symbol",
                     .target = &request->uses.limit,
                     .range = {{1, MOST_ANSWERS}}},
                    update_argument(&request->update)},
      .exit_status = "1 when nothing was found",
      .asks = true,
      .run = [&options, request] { return refs(options, *request); },
  };
}

}  // namespace veldra::tool
