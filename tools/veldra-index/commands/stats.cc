// veldra-index stats: how much is in the index.
#include <iostream>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"

namespace veldra::tool {

namespace {

int stats(const Options& options) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  Statistics counts;
  std::optional<Row> indexed;
  std::vector<Row> languages;
  // All figures of one state, those of `Database` included: a transaction that only reads.
  index->transaction([&](Cursor&) {
    counts = index->get_stats();
    indexed = index->fetchone("SELECT value FROM schema_info WHERE key = ?", {LAST_INDEX_KEY});
    languages = index->fetchall(
        "SELECT language, count(*) FROM files GROUP BY language ORDER BY count(*) DESC, language");
  });
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
  for (const auto& [name, count] : counts) {
    std::cout << name << std::string(12 - name.size(), ' ') << with_commas(count) << '\n';
  }
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
