// veldra-index symbols: definitions by name.
#include <iostream>
#include <memory>

#include "veldra-index/commands/answer.h"
#include "veldra-index/search/symbol_search.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/style.h"
#include "veldra/models/symbol.h"

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

/// Why there is no answer: perhaps there is no such kind.
std::string nothing_found(ReadIndex& index, const SymbolsOptions& query) {
  if (!query.kind) return "no symbol is named " + query.name;
  std::string kinds;
  for (const Row& row : index.fetchall("SELECT DISTINCT kind FROM symbols WHERE " + listed_sql() +
                                       " ORDER BY kind")) {
    if (row[0].as_text() == *query.kind)
      return "no symbol of the kind " + *query.kind + " is named " + query.name;
    kinds += (kinds.empty() ? "" : ", ") + std::string(row[0].as_text());
  }
  return "no symbol is of the kind " + *query.kind + "; there are " + kinds;
}

int symbols(const Options& options, const SymbolsOptions& request, bool update) {
  AskedIndex asked(options, update);
  SymbolsOptions query = request;
  query.below = asked.found.below;
  ++query.limit;  // one more tells that there are more
  std::vector<FoundSymbol> found = SymbolSearch(asked.index, query).run();
  if (std::ssize(found) == query.limit) {
    found.pop_back();
    say_beside(options, "these are the first " + with_commas(request.limit) + "; -n for more");
  }
  std::erase_if(found, [&](const FoundSymbol& symbol) {
    return !asked.freshness.has(symbol.file, symbol.line);
  });
  if (options.json) {
    print_json(as_json(found));
    return end_answer(options, asked, std::ssize(found), nothing_found(asked.index, query));
  }
  const Style style(options.color);
  for (const FoundSymbol& symbol : found) {
    std::cout << style.path(one_line(symbol.file)) << ':'
              << style.number(std::to_string(symbol.line.value_or(1))) << ": " << symbol.kind << ' '
              << style.hit(one_line(symbol.fqn)) << '\n';
  }
  return end_answer(options, asked, std::ssize(found),
                    found.empty() ? nothing_found(asked.index, query) : "");
}

}  // namespace

Command symbols_command(const Options& options) {
  const auto query = std::make_shared<SymbolsOptions>();
  const auto update = std::make_shared<bool>(false);
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
                    {"--path", "PATTERN", "Only files whose path matches, or is below",
                     &query->path},
                    {.names = "-n,--limit",
                     .value = "N",
                     .text = "At most so many",
                     .target = &query->limit,
                     .range = {{1, MOST_ANSWERS}}},
                    update_argument(update.get())},
      .exit_status = "1 when nothing was found",
      .asks = true,
      .run = [&options, query, update] { return symbols(options, *query, *update); },
  };
}

}  // namespace veldra::tool
