// veldra-index symbols: definitions by name.
#include <iostream>

#include "veldra-index/commands/commands.h"
#include "veldra-index/index/open_index.h"
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

}  // namespace

int symbols(const Options& options, const SymbolsOptions& query) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  const std::vector<FoundSymbol> found = SymbolSearch(*index, query).run();
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

}  // namespace veldra::tool
