// veldra-index search: text in the files.
#include <iostream>
#include <set>

#include "veldra-index/commands.h"
#include "veldra-index/failure.h"
#include "veldra-index/hit_lines.h"
#include "veldra-index/index_place.h"
#include "veldra-index/name_parts.h"
#include "veldra-index/output.h"
#include "veldra-index/search_query.h"

namespace veldra::tool {
namespace {

/// How many identifiers a word may stand for.
constexpr std::size_t MOST_NAMES = 50;
/// How many matches are ranked: a word that is everywhere says little, and ranking all of it is
/// slow.
constexpr std::int64_t MOST_RANKED = 8000;

constexpr std::string_view FROM_CHUNKS =
    " FROM code_chunks JOIN files ON files.id = code_chunks.rowid / 1048576";

struct Hit {
  std::string file;
  MarkedLine line;
  std::vector<MarkedLine> before, after;
};

class TextSearch {
 public:
  TextSearch(Database& index, const SearchOptions& options) : _index(index), _options(options) {}

  std::vector<Hit> run() {
    if (_options.fts) {
      _add_matches(_options.text, {});
      return std::move(_hits);
    }
    const SearchQuery query = parse_search(_options.text);
    if (!query.match.empty()) _add_matches(query.match, query.literal);
    if (query.only_words) {
      if (!_full()) _add_matches(_match_of_parts(query.words), {});
    } else if (query.match.empty() && !query.literal.empty()) {
      _scan(query.literal);
    }
    return std::move(_hits);
  }

 private:
  bool _full() const { return _hits.size() >= static_cast<std::size_t>(_options.limit); }

  /// Each word, or a name of which it is a part.
  std::string _match_of_parts(const std::vector<std::string>& words) {
    std::string match;
    bool wider = false;
    for (const std::string& word : words) {
      match += (match.empty() ? "(" : " AND (") + quote_term(word);
      for (const std::string& name : names_with_part(_index, word, MOST_NAMES)) {
        match += " OR " + quote_term(name);
        wider = true;
      }
      match += ')';
    }
    return wider ? match : std::string();
  }

  void _add_matches(const std::string& match, const std::vector<std::string>& literal) {
    if (match.empty()) return;
    Conditions conditions{"code_chunks MATCH ?", {match}};
    _hold(conditions, literal);
    if (literal.empty()) {
      _rank_first(conditions);
      _add("highlight(code_chunks, 0, char(2), char(3))", std::move(conditions), "rank", literal);
    } else {
      _add("text", std::move(conditions), "code_chunks.rowid", literal);
    }
  }

  /// Text without a word in it: every chunk is looked through, until there are enough.
  void _scan(const std::vector<std::string>& literal) {
    Conditions conditions{"TRUE", {}};
    _hold(conditions, literal);
    _add("text", std::move(conditions), "code_chunks.rowid", literal);
  }

  struct Conditions {
    std::string text;
    Params parameters;
  };

  void _hold(Conditions& conditions, const std::vector<std::string>& literal) const {
    for (const std::string& text : literal) {
      conditions.text += " AND text LIKE ? ESCAPE '\\'";
      conditions.parameters.emplace_back(like_pattern(text));
    }
    if (_options.path) {
      conditions.text += " AND path_glob(files.path, ?)";
      conditions.parameters.emplace_back(*_options.path);
    }
  }

  /// Leaves out what comes after the first `MOST_RANKED` matches.
  static void _rank_first(Conditions& conditions) {
    const std::string first = "SELECT code_chunks.rowid AS id" + std::string(FROM_CHUNKS) +
                              " WHERE " + conditions.text + " LIMIT " + std::to_string(MOST_RANKED);
    conditions.text += " AND code_chunks.rowid <= (SELECT max(id) FROM (" + first + "))";
    const Params once = conditions.parameters;
    conditions.parameters.insert(conditions.parameters.end(), once.begin(), once.end());
  }

  void _add(const std::string& text, Conditions conditions, const std::string& order,
            const std::vector<std::string>& literal) {
    const std::string query = "SELECT code_chunks.rowid, files.path, start_line, " + text +
                              std::string(FROM_CHUNKS) + " WHERE " + conditions.text +
                              " ORDER BY " + order + " LIMIT ?";
    // What was seen before may come again.
    conditions.parameters.emplace_back(_options.limit + static_cast<std::int64_t>(_seen.size()));
    for (const Row& row : _index.fetchall(query, conditions.parameters)) {
      if (_full()) return;
      if (_seen.insert(row[0].as_integer()).second) _add_chunk(row, literal);
    }
  }

  void _add_chunk(const Row& row, const std::vector<std::string>& literal) {
    std::vector<MarkedLine> lines = lines_of(row[3].as_text(), row[2].as_integer());
    if (_options.context > 0) _add_neighbours(row[0].as_integer(), lines);
    if (!literal.empty()) {
      unmark(lines);  // the words of a literal stand elsewhere as well
      mark_texts(lines, literal);
    }
    for (std::size_t at = 0; at < lines.size() && !_full(); ++at) {
      if (lines[at].hits.empty()) continue;
      const auto context = static_cast<std::size_t>(_options.context);
      const auto line = lines.begin() + static_cast<std::ptrdiff_t>(at);
      const auto first = line - static_cast<std::ptrdiff_t>(std::min(context, at));
      const auto last =
          line + 1 + static_cast<std::ptrdiff_t>(std::min(context, lines.size() - at - 1));
      _hits.push_back({std::string(row[1].as_text()), *line, {first, line}, {line + 1, last}});
    }
  }

  /// Lines around a hit may lie in the file's chunk before or behind.
  void _add_neighbours(std::int64_t chunk, std::vector<MarkedLine>& lines) {
    static constexpr std::string_view QUERY =
        "SELECT text, start_line FROM code_chunks WHERE rowid = ?";
    const auto context = static_cast<std::ptrdiff_t>(_options.context);
    if (const auto row = _index.fetchone(QUERY, {chunk - 1})) {
      const auto before = lines_of((*row)[0].as_text(), (*row)[1].as_integer());
      const auto count = std::min(context, std::ssize(before));
      lines.insert(lines.begin(), before.end() - count, before.end());
    }
    if (const auto row = _index.fetchone(QUERY, {chunk + 1})) {
      const auto after = lines_of((*row)[0].as_text(), (*row)[1].as_integer());
      const auto count = std::min(context, std::ssize(after));
      lines.insert(lines.end(), after.begin(), after.begin() + count);
    }
  }

  Database& _index;
  const SearchOptions& _options;
  std::set<std::int64_t> _seen;  // chunks
  std::vector<Hit> _hits;
};

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

}  // namespace

int search(const Options& options, const SearchOptions& query) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  std::vector<Hit> hits;
  try {
    hits = TextSearch(*index, query).run();
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

}  // namespace veldra::tool
