// Names that have a word as a part.
#include "veldra-index/search/name_parts.h"

#include <algorithm>
#include <future>
#include <thread>

#include "veldra-index/search/search_query.h"

namespace veldra::tool {

namespace {

/// Names that divide all of them into about `count` equal ranges, from a sample.
std::vector<std::string> boundaries(Database& index, std::int64_t count) {
  static constexpr std::int64_t SAMPLES = 64;
  const std::vector<Row> rows = index.fetchall(
      "WITH RECURSIVE sample(at) AS (SELECT 1 UNION ALL SELECT at + 1 FROM sample WHERE at < ?1)"
      " SELECT name FROM sample JOIN symbols ON symbols.id = at * (SELECT max(id) FROM symbols) / "
      "?1"
      " ORDER BY name",
      {SAMPLES});
  std::vector<std::string> names;
  for (std::int64_t range = 1; range < count && !rows.empty(); ++range) {
    names.emplace_back(
        rows[rows.size() * static_cast<std::size_t>(range) / static_cast<std::size_t>(count)][0]
            .as_text());
  }
  return names;
}

std::vector<Row> names_between(Database& index, const Value& begin, const Value& end,
                               const std::string& pattern) {
  return index.fetchall(
      "SELECT DISTINCT name FROM symbols"
      " WHERE name >= ? AND name < coalesce(?, x'') AND name LIKE ? ESCAPE '\\'",
      {begin, end, pattern});
}

}  // namespace

std::vector<std::string> names_with_part(Database& index, std::string_view word,
                                         std::size_t limit) {
  std::vector<std::string> names;
  if (limit == 0 || word.empty()) return names;
  const std::int64_t threads = std::clamp<std::int64_t>(std::thread::hardware_concurrency(), 1, 4);
  const std::string pattern = part_pattern(word);
  std::vector<std::future<std::vector<Row>>> ranges;
  Value begin = "";
  for (const std::string& end : boundaries(index, threads)) {
    ranges.push_back(
        std::async(std::launch::async, names_between, std::ref(index), begin, end, pattern));
    begin = end;
  }
  const std::vector<Row> last = names_between(index, begin, nullptr, pattern);
  const auto keep = [&](const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      if (has_part(row[0].as_text(), word)) names.emplace_back(row[0].as_text());
    }
  };
  for (auto& range : ranges) keep(range.get());
  keep(last);
  std::stable_sort(names.begin(), names.end(),
                   [](const auto& left, const auto& right) { return left.size() < right.size(); });
  names.resize(std::min(names.size(), limit));
  return names;
}

}  // namespace veldra::tool
