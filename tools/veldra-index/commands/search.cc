// veldra-index search: text in the files.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "veldra-index/commands/answer.h"
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
    _has_context = _has_context || !hit.before.empty() || !hit.after.empty();
  }

  /// "file:12:5:text" for each place, as editors read it.
  void print_places(const Hit& hit) const {
    for (const auto& [begin, end] : hit.line.hits) {
      std::cout << one_line(hit.file) << ':' << hit.line.number << ':' << begin + 1 << ':'
                << shown(hit.line, _style) << '\n';
    }
  }

 private:
  void _print_line(const std::string& file, const MarkedLine& line, char separator) {
    const bool same_file = file == _file;
    if (same_file && line.number <= _last_line && line.number >= _first_line) return;
    const bool goes_on = same_file && line.number == _last_line + 1;
    if (!goes_on) {
      if (!_file.empty() && _has_context) std::cout << _style.faint("--") << '\n';
      _first_line = line.number;
    }
    _file = file;
    _last_line = line.number;
    std::cout << _style.path(one_line(file)) << separator
              << _style.number(std::to_string(line.number)) << separator << shown(line, _style)
              << '\n';
  }

  const Style& _style;
  std::string _file;
  std::int64_t _first_line = 0;  // of the lines that were printed without a gap, to `_last_line`
  std::int64_t _last_line = 0;
  bool _has_context = false;
};

/// How a search is answered.
struct SearchRequest {
  SearchOptions query;
  bool fixed = false, regex = false, full_text = false;
  bool ignore_case = false;
  bool only_files = false, only_counts = false, places = false;
  bool update = false;
  std::int64_t limit = 0;     // 0 for what is usual
  std::int64_t context = -1;  // less than 0 for what is usual
};

/// The query as it is meant where `options` and the terminal leave something open.
SearchOptions query_of(const Options& options, const SearchRequest& request) {
  using Syntax = SearchOptions::Syntax;
  if (request.fixed + request.regex + request.full_text > 1)
    throw Failure("only one of -F, -e and --fts can be given", EXIT_USAGE);
  if (request.query.text.empty())
    throw Failure("there is no text to look for; see `veldra-index search --help`", EXIT_USAGE);
  SearchOptions query = request.query;
  query.syntax = request.fixed       ? Syntax::Fixed
                 : request.regex     ? Syntax::Regex
                 : request.full_text ? Syntax::FullText
                                     : Syntax::Plain;
  query.case_counts = query.case_counts && !request.ignore_case;
  query.counts_files = request.only_files || request.only_counts;
  query.limit = request.limit > 0 ? request.limit : query.limit;
  const bool is_read = options.json || ::isatty(STDOUT_FILENO) == 1;
  query.context = request.places ? 0 : request.context >= 0 ? request.context : is_read ? 1 : 0;
  query.threads = options.jobs;
  return query;
}

void print_files(const Options& options, const Findings& found, bool with_counts) {
  if (options.json) {
    Json json = Json::array();
    for (const auto& [file, lines] : found.files)
      json.push_back({{"file", file}, {"lines", lines}});
    print_json(json);
    return;
  }
  const Style style(options.color);
  for (const auto& [file, lines] : found.files) {
    std::cout << style.path(one_line(file));
    if (with_counts) std::cout << ':' << lines;
    std::cout << '\n';
  }
}

void print_hits(const Options& options, const Findings& found, bool as_places) {
  if (options.json) {
    print_json(as_json(found.hits));
    return;
  }
  const Style style(options.color);
  HitPrinter printer(style);
  for (const Hit& hit : found.hits) as_places ? printer.print_places(hit) : printer.print(hit);
}

int search(const Options& options, const SearchRequest& request) {
  SearchOptions query = query_of(options, request);
  AskedIndex asked(options, request.update);
  query.below = asked.found.below;
  Findings found;
  try {
    found = TextSearch(asked.index, query).run();
  } catch (const Error& error) {
    if (query.syntax != SearchOptions::Syntax::FullText) throw;
    throw Failure(std::string(error.what()) +
                  "; leave --fts out to search for the text as it stands");
  }
  std::erase_if(found.hits,
                [&](const Hit& hit) { return !asked.freshness.has(hit.file, hit.line.number); });
  std::erase_if(found.files,
                [&](const auto& file) { return !asked.freshness.has(file.first, std::nullopt); });
  if (query.counts_files && request.limit > 0 && std::ssize(found.files) > request.limit)
    found.files.resize(static_cast<std::size_t>(request.limit));
  query.counts_files ? print_files(options, found, request.only_counts)
                     : print_hits(options, found, request.places);
  if (!query.counts_files && found.lines > query.limit)
    say_more(options, query.limit, found.lines, found.all_counted);
  return end_answer(options, asked, std::ssize(found.hits) + std::ssize(found.files),
                    "nothing found");
}

std::vector<Argument> arguments_of(SearchRequest* request) {
  SearchOptions* const query = &request->query;
  return {
      {"TEXT", "", "What to look for", &query->text, true},
      {"-F,--fixed", "", "TEXT as it stands, whatever is in it", &request->fixed},
      {"-e,--regex", "", "TEXT is a regular expression (RE2)", &request->regex},
      {"--fts", "", "TEXT is the full-text syntax of SQLite", &request->full_text},
      {"-s,--case-sensitive", "", "Letter case counts", &query->case_counts},
      {"-i,--ignore-case", "", "Letter case does not count: the default", &request->ignore_case},
      {"-w,--word", "", "Only whole words", &query->whole_words},
      {"--path", "PATTERN", "Only files whose path matches, such as 'src/**/*.h', or is below",
       &query->path},
      {"--lang", "LANGUAGE", "Only files of this language, as stats names it", &query->language},
      {.names = "-n,--limit",
       .value = "N",
       .text = "At most so many lines, or files with -l and -c",
       .target = &request->limit,
       .range = {{1, MOST_ANSWERS}},
       .standard = "20; with -l and -c all"},
      {.names = "-C,--context",
       .value = "N",
       .text = "Lines to show around each hit",
       .target = &request->context,
       .range = {{0, MOST_CONTEXT}},
       .standard = "1; 0 in a pipe"},
      {"-l,--files", "", "Only the files, not the lines", &request->only_files},
      {"-c,--count", "", "Only how many lines of each file", &request->only_counts},
      {"--vimgrep", "", "A line per place: file:line:column:text", &request->places},
      update_argument(&request->update)};
}

}  // namespace

Command search_command(const Options& options) {
  const auto request = std::make_shared<SearchRequest>();
  return {
      .name = "search",
      .summary = "Find text in the files",
      .details =
          "Words separated by blanks must all be there; a word and * finds what begins so. Whole "
          "words come first, then names of which a word is a part, then what is inside of words. "
          "Any other text, such as foo->bar, C++ or return \"no\", is looked for as it stands. "
          "Where a word is defined comes before where it is used, and what people write before "
          "what is generated or somebody else's. Lines of files that have changed since are left "
          "out where they are no longer there. Put -- before text that begins with a dash.",
      .examples = {{"veldra-index search 'open file'", "both words, anywhere in a piece of a file"},
                   {"veldra-index search 'open file' src/net", "only in this folder"},
                   {"veldra-index search 'foo->bar'", "text as it stands"},
                   {"veldra-index search -F 'open file'", "words as they stand"},
                   {"veldra-index search -e 'open_\\w+\\(' --lang C", "a regular expression"},
                   {"veldra-index search --fts 'open NEAR file'",
                    "the full-text syntax of SQLite"}},
      .arguments = arguments_of(request.get()),
      .exit_status = "1 when nothing was found",
      .asks = true,
      .run = [&options, request] { return search(options, *request); },
  };
}

}  // namespace veldra::tool
