// Names that have a word as a part.
#include "veldra-index/search/name_parts.h"

#include <algorithm>

#include "veldra-index/search/search_query.h"

namespace veldra::tool {

std::vector<std::string> names_with_part(ReadIndex& index, std::string_view word,
                                         std::size_t limit) {
  std::vector<std::string> names;
  if (limit == 0 || word.empty()) return names;
  index.fetcheach("SELECT DISTINCT name FROM symbols WHERE name LIKE ? ESCAPE '\\'",
                  {part_pattern(word)}, [&](const Row& row) {
                    if (has_part(row[0].as_text(), word)) names.emplace_back(row[0].as_text());
                    return true;
                  });
  std::stable_sort(names.begin(), names.end(),
                   [](const auto& left, const auto& right) { return left.size() < right.size(); });
  names.resize(std::min(names.size(), limit));
  return names;
}

}  // namespace veldra::tool
