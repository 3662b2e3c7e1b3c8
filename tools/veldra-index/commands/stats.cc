// veldra-index stats: how much is in the index.
#include <iostream>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/read_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra/models/symbol.h"

namespace veldra::tool {

namespace {

std::vector<std::pair<std::string, std::int64_t>> counts_of(ReadIndex& index) {
  const std::pair<const char*, std::string> counted[] = {
      {"files", "files"},
      {"symbols", "symbols WHERE " + listed_sql()},
      {"edges", "edges"},
      {"components", "components"},
      {"errors", "index_errors"}};
  std::vector<std::pair<std::string, std::int64_t>> counts;
  for (const auto& [name, rows] : counted) {
    const auto row = index.fetchone("SELECT count(*) FROM " + rows);
    counts.emplace_back(name, (*row)[0].as_integer());
  }
  return counts;
}

int stats(const Options& options) {
  ReadIndex index(index_of(options.directory, options.db).place);
  const std::vector<std::pair<std::string, std::int64_t>> counts = counts_of(index);
  const auto indexed =
      index.fetchone("SELECT value FROM schema_info WHERE key = ?", {LAST_INDEX_KEY});
  const std::vector<Row> languages = index.fetchall(
      "SELECT language, count(*) FROM files GROUP BY language ORDER BY count(*) DESC, language");
  if (options.json) {
    Json json;
    for (const auto& [name, count] : counts) json[name] = count;
    json["last_index"] = indexed ? to_json((*indexed)[0]) : Json();
    json["languages"] = Json::object();
    for (const Row& row : languages)
      json["languages"][std::string(row[0].as_text())] = row[1].as_integer();
    print_json(json);
    return EXIT_DONE;
  }
  for (const auto& [name, count] : counts)
    std::cout << name << std::string(12 - name.size(), ' ') << with_commas(count) << '\n';
  std::cout << "languages   ";
  static constexpr std::size_t SHOWN = 6;
  for (std::size_t at = 0; at < std::min(languages.size(), SHOWN); ++at) {
    std::cout << (at == 0 ? "" : ", ") << languages[at][0].as_text() << ' '
              << with_commas(languages[at][1].as_integer());
  }
  std::cout << (languages.size() > SHOWN ? ", …" : "") << '\n';
  std::cout << "indexed     " << (indexed ? to_text((*indexed)[0]) : "never") << '\n';
  return EXIT_DONE;
}

}  // namespace

Command stats_command(const Options& options) {
  return {
      .name = "stats",
      .summary = "Count what is in the index",
      .details =
          "Files, symbols, imports and languages, and when the index was last brought up to date.",
      .examples = {{"veldra-index stats"}, {"veldra-index stats --json"}},
      .arguments = {},
      .exit_status = "",
      .run = [&options] { return stats(options); },
  };
}

}  // namespace veldra::tool
