// veldra-index search: text in the files.
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/search/text_search.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {
namespace {

constexpr std::int64_t MOST_CONTEXT = 1000;

Json as_json(const std::vector<Hit>& hits) {
  const auto texts = [](const std::vector<MarkedLine>& lines) {
    Json json = Json::array();
    for (const MarkedLine& line : lines) json.push_back(line.text);
    return json;
  };
  Json json = Json::array();
  for (const Hit& hit : hits) {
    Json entry;
    entry["file"] = hit.file;
    entry["line"] = hit.line.number;
    entry["column"] = hit.line.hits.front().first + 1;
    entry["text"] = hit.line.text;
    entry["before"] = texts(hit.before);
    entry["after"] = texts(hit.after);
    json.push_back(std::move(entry));
  }
  return json;
}

/// As grep does it: "file:12:text" for a hit, "file-11-text" for a line around it.
class HitPrinter {
 public:
  explicit HitPrinter(const Style& style) : _style(style) {}

  void print(const Hit& hit) {
    for (const MarkedLine& line : hit.before) _print_line(hit.file, line, '-');
    _print_line(hit.file, hit.line, ':');
    for (const MarkedLine& line : hit.after) {
      if (!line.hits.empty()) break;  // comes as a hit of its own
      _print_line(hit.file, line, '-');
    }
  }

 private:
  void _print_line(const std::string& file, const MarkedLine& line, char separator) {
    const bool same_file = file == _file;
    if (same_file && line.number <= _last_line && line.number >= _first_line) return;
    const bool goes_on = same_file && line.number == _last_line + 1;
    if (!goes_on) {
      if (!_file.empty()) std::cout << _style.faint("--") << '\n';
      _first_line = line.number;
    }
    _file = file;
    _last_line = line.number;
    std::cout << _style.path(one_line(file)) << separator
              << _style.number(std::to_string(line.number)) << separator
              << (separator == ':' ? _marked(line) : one_line(line.text)) << '\n';
  }

  std::string _marked(const MarkedLine& line) const {
    std::string text;
    std::size_t at = 0;
    for (const auto& [begin, end] : line.hits) {
      text += one_line(line.text.substr(at, begin - at));
      text += _style.hit(one_line(line.text.substr(begin, end - begin)));
      at = end;
    }
    return text + one_line(line.text.substr(at));
  }

  const Style& _style;
  std::string _file;
  std::int64_t _first_line = 0;  // of the lines that were printed without a gap, to `_last_line`
  std::int64_t _last_line = 0;
};

int search(const Options& options, const SearchOptions& query) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  std::vector<Hit> hits;
  try {
    index->snapshot([&](Snapshot& state) { hits = TextSearch(state, query).run(); });
  } catch (const Error& error) {
    if (!query.fts) throw;
    throw Failure(std::string(error.what()) +
                  "; leave --fts out to search for the text as it stands");
  }
  if (options.json) {
    print_json(as_json(hits));
    return EXIT_DONE;
  }
  const Style style(options.color);
  HitPrinter printer(style);
  for (const Hit& hit : hits) printer.print(hit);
  if (hits.empty() && !options.quiet) std::cout << "nothing found\n";
  return EXIT_DONE;
}

}  // namespace

Command search_command(const Options& options) {
  const auto query = std::make_shared<SearchOptions>();
  return {
      .name = "search",
      .summary = "Find text in the files",
      .details =
          "Words separated by blanks must all be there; text in double quotes is a phrase; a word "
          "and * finds what begins so; text with punctuation, such as foo->bar or C++, is searched "
          "for as it stands. A word also finds names of which it is a part, after those that are "
          "the word itself: swap finds swap_index_from and SwapIndexFrom. Put -- before text that "
          "begins with a dash.",
      .examples = {{"veldra-index search 'open file'", "both words, anywhere in a piece of a file"},
                   {"veldra-index search '\"open file\"'", "the phrase"},
                   {"veldra-index search 'swap*' --path 'src/**'",
                    "words that begin so, in some files"},
                   {"veldra-index search 'foo->bar'", "text as it stands"},
                   {"veldra-index search --fts 'open NEAR file'",
                    "the full-text syntax of SQLite"}},
      .arguments = {{"TEXT", "", "What to look for", &query->text, true},
                    {"--fts", "", "TEXT is the full-text syntax of SQLite", &query->fts},
                    {"--path", "PATTERN", "Only files whose path matches, such as 'src/**/*.h'",
                     &query->path},
                    {.names = "-n,--limit",
                     .value = "N",
                     .text = "At most so many lines",
                     .target = &query->limit,
                     .range = {{1, MOST_ANSWERS}}},
                    {.names = "-C,--context",
                     .value = "N",
                     .text = "Lines to show around each hit",
                     .target = &query->context,
                     .range = {{0, MOST_CONTEXT}}}},
      .exit_status = "",
      .run = [&options, query] { return search(options, *query); },
  };
}

}  // namespace veldra::tool
