// veldra-index symbols: definitions by name.
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/search/symbol_search.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {
namespace {

Json as_json(const std::vector<FoundSymbol>& found) {
  Json json = Json::array();
  for (const FoundSymbol& symbol : found) {
    Json entry;
    entry["name"] = symbol.name;
    entry["fqn"] = symbol.fqn;
    entry["kind"] = symbol.kind;
    entry["file"] = symbol.file;
    entry["line"] = symbol.line ? Json(*symbol.line) : Json();
    entry["end_line"] = symbol.end_line ? Json(*symbol.end_line) : Json();
    entry["exact"] = symbol.exact;
    json.push_back(std::move(entry));
  }
  return json;
}

int symbols(const Options& options, const SymbolsOptions& query) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  std::vector<FoundSymbol> found;
  index->snapshot([&](Snapshot& state) { found = SymbolSearch(state, query).run(); });
  if (options.json) {
    print_json(as_json(found));
    return EXIT_DONE;
  }
  const Style style(options.color);
  for (const FoundSymbol& symbol : found) {
    std::cout << style.path(one_line(symbol.file)) << ':'
              << style.number(std::to_string(symbol.line.value_or(1))) << ": " << symbol.kind << ' '
              << style.hit(one_line(symbol.fqn)) << '\n';
  }
  if (found.empty() && !options.quiet) std::cout << "no symbol is named " << query.name << '\n';
  return EXIT_DONE;
}

}  // namespace

Command symbols_command(const Options& options) {
  const auto query = std::make_shared<SymbolsOptions>();
  return {
      .name = "symbols",
      .summary = "Find definitions by name",
      .details =
          "The name may be qualified (Database::connect) or a pattern ('open_*'). Definitions of "
          "exactly that name come first, then those that have it as a part.",
      .examples = {{"veldra-index symbols connect"},
                   {"veldra-index symbols Database::connect"},
                   {"veldra-index symbols 'open_*' --kind function --path 'src/**'"}},
      .arguments = {{"NAME", "", "A name, or a pattern with * and ?", &query->name, true},
                    {"--kind", "KIND", "Only this kind: function, class, macro and so on",
                     &query->kind},
                    {"--path", "PATTERN", "Only files whose path matches", &query->path},
                    {.names = "-n,--limit",
                     .value = "N",
                     .text = "At most so many",
                     .target = &query->limit,
                     .range = {{1, MOST_ANSWERS}}}},
      .exit_status = "",
      .run = [&options, query] { return symbols(options, *query); },
  };
}

}  // namespace veldra::tool
