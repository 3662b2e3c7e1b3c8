// Who uses a symbol.
#include "veldra-index/search/uses.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "veldra-index/search/symbol_search.h"
#include "veldra-index/search/text_search.h"
#include "veldra/models/symbol.h"

namespace veldra::tool {

Uses uses_of(ReadIndex& index, const UsesOptions& options) {
  const std::string_view name = last_name(options.name);
  std::set<std::pair<std::string, std::int64_t>> definitions;
  for (const Row& row : index.fetchall("SELECT path, start_line FROM symbols"
                                       " JOIN files ON files.id = file_id"
                                       " WHERE name = ? AND kind <> ? AND start_line IS NOT NULL",
                                       {name, ANCHOR_KIND}))
    definitions.emplace(row[0].as_text(), row[1].as_integer());
  if (definitions.empty()) return {};

  SearchOptions query;
  query.text = name;
  query.syntax = SearchOptions::Syntax::Fixed;
  query.case_counts = true;
  query.whole_words = true;
  query.below = options.below;
  query.limit = options.limit;
  query.context = 0;
  query.threads = options.threads;
  Findings found = TextSearch(index, query).run();
  Uses uses{{}, found.lines, found.all_counted};
  for (Hit& hit : found.hits) {
    const bool is_definition = definitions.contains({hit.file, hit.line.number});
    uses.lines.push_back({std::move(hit.file), std::move(hit.line), is_definition});
  }
  std::ranges::sort(uses.lines, [](const Use& left, const Use& right) {
    return std::tie(left.file, left.line.number) < std::tie(right.file, right.line.number);
  });
  return uses;
}

}  // namespace veldra::tool
