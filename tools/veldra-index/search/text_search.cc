// Searching the texts of the files.
#include "veldra-index/search/text_search.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "veldra-index/tree/path_text.h"
#include "veldra/models/chunk.h"
#include "veldra/models/symbol.h"

namespace veldra::tool {
namespace {

using Edges = LinePattern::Edges;

/// How many matches are ranked: a word that is everywhere says little, and ranking all of it is
/// slow. Those behind come in the order of their files.
constexpr std::int64_t MOST_RANKED = 8000;
/// How many lines are counted beyond those that are shown.
constexpr std::int64_t MOST_COUNTED = 10'000;

bool contains(const auto& words, std::string_view word) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

/// The word that the bytes of `range` are a part of.
std::string_view word_around(std::string_view line, Range range) {
  while (range.first > 0 && is_word_byte(line[range.first - 1])) --range.first;
  while (range.second < line.size() && is_word_byte(line[range.second])) ++range.second;
  return line.substr(range.first, range.second - range.first);
}

/// True when in a hit of `line` one of `words` is a part of the name, not only inside of it.
bool has_part_of_name(const HitLine& line, const std::vector<SearchQuery::Word>& words) {
  return std::any_of(line.hits.begin(), line.hits.end(), [&](const Range& hit) {
    const std::string_view name = word_around(line.text, hit);
    return std::any_of(words.begin(), words.end(),
                       [name](const SearchQuery::Word& word) { return has_part(name, word.text); });
  });
}

void sort_and_merge(std::vector<Range>& ranges) {
  std::sort(ranges.begin(), ranges.end());
  std::vector<Range> merged;
  for (const Range& range : ranges)
    if (!merged.empty() && range.first < merged.back().second)
      merged.back().second = std::max(merged.back().second, range.second);
    else
      merged.push_back(range);
  ranges = std::move(merged);
}

}  // namespace

bool is_secondary(std::string_view path) {
  static constexpr std::array<std::string_view, 13> FOLDERS = {
      "vendor", "vendored", "third_party",      "third-party", "thirdparty", "node_modules", "deps",
      "dist",   "external", "bower_components", "generated",   "gen",        "externals"};
  static constexpr std::array<std::string_view, 14> ENDINGS = {
      ".min.js", ".min.css", ".bundle.js", ".map",   "-lock.json", "-lock.yaml",    ".lock",
      "_pb2.py", ".pb.go",   ".pb.h",      ".pb.cc", ".g.dart",    "_generated.go", ".svg"};
  for (std::string_view folder = folder_of(path); !folder.empty(); folder = folder_of(folder))
    if (contains(FOLDERS, file_name_of(folder))) return true;
  return std::any_of(ENDINGS.begin(), ENDINGS.end(),
                     [path](std::string_view ending) { return path.ends_with(ending); });
}

TextSearch::TextSearch(ReadIndex& index, const SearchOptions& options)
    : _index(index), _options(options) {
  const auto hold = [this](std::string_view condition, Params parameters) {
    _files_wanted += (_files_wanted.empty() ? "SELECT id FROM files WHERE " : " AND ");
    _files_wanted += condition;
    for (Value& parameter : parameters) _files_parameters.push_back(std::move(parameter));
  };
  if (options.path)
    hold("(path_glob(path, ?) OR path_under(path, ?))", {*options.path, *options.path});
  if (!options.below.empty()) hold("path_under(path, ?)", {options.below});
  if (options.language) hold("language = ? COLLATE NOCASE", {*options.language});
}

Findings TextSearch::run() {
  const Edges edges = _options.whole_words ? Edges::Both : Edges::Anywhere;
  switch (_options.syntax) {
    case SearchOptions::Syntax::FullText:
      _add_ranked(_options.text, "highlight(code_chunks, 0, char(2), char(3))");
      break;
    case SearchOptions::Syntax::Regex:
      _patterns.push_back(LinePattern::regex(_options.text, _options.case_counts, edges));
      _add_matches_or_scan(narrowing_match_of_regex(_options.text));
      break;
    case SearchOptions::Syntax::Fixed:
      _search_text(_options.text);
      break;
    case SearchOptions::Syntax::Plain:
      _words = parse_search(_options.text).words;
      if (!_words.empty()) {
        _search_words();
      } else {
        _search_text(_options.text);
        if (const auto inside = inside_quotes(_options.text); !inside.empty() && !_enough())
          _search_text(std::string(inside));
      }
      break;
  }
  _end_step();
  return std::move(_found);
}

void TextSearch::_search_words() {
  for (const auto& [word, begins] : _words) {
    _patterns.push_back(
        LinePattern::word(word, _options.case_counts, begins ? Edges::Begin : Edges::Both));
  }
  const bool has_beginnings = std::any_of(
      _words.begin(), _words.end(), [](const SearchQuery::Word& word) { return word.begins; });
  if (_words.size() == 1 && !has_beginnings) _add_definitions(_words.front().text);
  _add_matches(match_of(_words));
  _end_step();
  if (_words.size() > 1 && !_enough()) _add_files_with_all();
  if (_enough() || has_beginnings || _options.whole_words) return;
  _patterns.clear();
  for (const auto& [word, begins] : _words)
    _patterns.push_back(LinePattern::text(word, _options.case_counts));
  _parts_first = true;
  _scan();
}

void TextSearch::_search_text(const std::string& text) {
  const bool is_word = std::all_of(text.begin(), text.end(), is_word_byte);
  _patterns.clear();
  _patterns.push_back(LinePattern::text(text, _options.case_counts,
                                        _options.whole_words ? Edges::Both : Edges::Anywhere));
  if (is_word) {
    _add_definitions(text);
    _add_matches(quote_term(text) + (_options.whole_words ? "" : "*"));
    _end_step();
  }
  if (!_enough()) _add_matches_or_scan(is_word ? "" : narrowing_match(text));
}

/// The lines on which `name` is defined: functions and types before variables.
void TextSearch::_add_definitions(const std::string& name) {
  std::string query =
      "SELECT file_id, start_line FROM symbols JOIN files ON files.id = file_id"
      " WHERE name = ? AND " +
      listed_sql();
  Params parameters = {name};
  if (!_files_wanted.empty()) {
    query += " AND file_id IN (" + _files_wanted + ")";
    parameters.insert(parameters.end(), _files_parameters.begin(), _files_parameters.end());
  }
  query +=
      " ORDER BY kind IN ('variable', 'member', 'field', 'local', 'label', 'key', 'id'),"
      " path, start_line LIMIT ?";
  parameters.emplace_back(_options.limit);
  for (const Row& row : _index.fetchall(query, parameters)) {
    if (row[1].is_null()) continue;
    const std::int64_t first = row[0].as_integer() * CHUNKS_PER_FILE;
    _only_line = row[1].as_integer();
    _index.fetcheach(
        "SELECT rowid, start_line, text FROM code_chunks"
        " WHERE rowid >= ? AND rowid < ? AND start_line <= ? AND end_line >= ?",
        {first, first + CHUNKS_PER_FILE, *_only_line, *_only_line},
        [this](const Row& piece) { return _add_piece(piece); });
  }
  _only_line.reset();
  _end_step();
}

void TextSearch::_add_matches_or_scan(const std::string& match) {
  match.empty() ? _scan() : _add_matches(match);
}

void TextSearch::_add_matches(const std::string& match) {
  if (const auto last = _add_ranked(match, "text"); last && !_enough())
    _add_pieces("text", "code_chunks MATCH ? AND rowid > ?", {match, *last}, "rowid");
}

/// The first pieces that match, best first; gives the last of them where there are more.
std::optional<std::int64_t> TextSearch::_add_ranked(const std::string& match,
                                                    const std::string& text) {
  std::string first = "SELECT rowid AS id FROM code_chunks WHERE code_chunks MATCH ?";
  Params parameters = {match};
  _hold(first, parameters);
  const auto bound = _index.fetchone(
      "SELECT max(id), count(*) FROM (" + first + " LIMIT " + std::to_string(MOST_RANKED) + ")",
      parameters);
  if ((*bound)[0].is_null()) return std::nullopt;
  const std::int64_t last = (*bound)[0].as_integer();
  _add_pieces(text, "code_chunks MATCH ? AND rowid <= ?", {match, last},
              _options.counts_files ? "rowid" : "rank");
  return (*bound)[1].as_integer() < MOST_RANKED ? std::nullopt : std::optional(last);
}

/// Pieces of files that have all the words, though not in one piece.
void TextSearch::_add_files_with_all() {
  std::string any, condition;
  Params parameters = {""};
  for (const SearchQuery::Word& word : _words) {
    const std::string match = match_of({word});
    any += (any.empty() ? "" : " OR ") + match;
    condition += fmt::format(" AND {0} IN (SELECT {0} FROM code_chunks WHERE code_chunks MATCH ?)",
                             FILE_OF_CHUNK_SQL);
    parameters.emplace_back(match);
  }
  parameters.front() = any;
  _add_pieces("text", "code_chunks MATCH ?" + condition, parameters, "rowid");
  _end_step();
}

void TextSearch::_add_pieces(const std::string& text, const std::string& condition,
                             Params parameters, const std::string& order) {
  std::string query = "SELECT rowid, start_line, " + text + " FROM code_chunks WHERE " + condition;
  _hold(query, parameters);
  _index.fetcheach(query + " ORDER BY " + order, parameters,
                   [this](const Row& row) { return _add_piece(row); });
}

/// Restricts a query on `code_chunks` to the files that are asked for.
void TextSearch::_hold(std::string& query, Params& parameters) const {
  if (_files_wanted.empty()) return;
  query += fmt::format(" AND {} IN ({})", FILE_OF_CHUNK_SQL, _files_wanted);
  parameters.insert(parameters.end(), _files_parameters.begin(), _files_parameters.end());
}

void TextSearch::_scan() {
  TextScan scan;
  scan.threads = _options.threads;
  scan.holds = [this](std::string_view text) {
    return std::all_of(_patterns.begin(), _patterns.end(),
                       [text](const LinePattern& pattern) { return pattern.may_be_in(text); });
  };
  if (!_files_wanted.empty()) {
    scan.files.emplace();
    for (const Row& row : _index.fetchall(_files_wanted + " ORDER BY id", _files_parameters))
      scan.files->push_back(row[0].as_integer());
  }
  scan.run(_index, [this](const Row& piece) { return _add_piece(piece); });
}

/// `piece` is its row id, first line and text. False when no more are wanted.
bool TextSearch::_add_piece(const Row& piece) {
  const std::int64_t id = piece[0].as_integer(), first_line = piece[1].as_integer();
  const File* const file = _file_of(id / CHUNKS_PER_FILE);
  if (file == nullptr) return true;
  const bool is_marked = _patterns.empty();
  const MarkedText marked = is_marked ? text_without_marks(piece[2].as_text())
                                      : MarkedText{plain_text(piece[2].as_text()), {}};
  const std::vector<HitLine> found = is_marked ? lines_with(marked.hits, marked.text, first_line)
                                               : _lines_found(marked.text, first_line);
  auto& seen = _seen[id / CHUNKS_PER_FILE];
  std::vector<MarkedLine> lines;  // when one is to be shown
  for (const HitLine& line : found) {
    if ((_only_line && line.number != *_only_line) || !seen.insert(line.number).second) continue;
    ++_found.lines;
    if (_options.counts_files) {
      _count_line(id / CHUNKS_PER_FILE, file->path);
    } else if (auto& hits = _place_of(line, *file); std::ssize(hits) < _options.limit) {
      if (lines.empty()) lines = all_lines(marked.text, first_line, found);
      hits.push_back(_hit(*file, id, lines, static_cast<std::size_t>(line.number - first_line)));
    }
  }
  if (_options.counts_files || std::ssize(_found.hits) < _options.limit ||
      _found.lines <= _options.limit + MOST_COUNTED)
    return true;
  _found.all_counted = false;
  return false;
}

/// The lines with hits of the patterns; where one has those of several, only those that have the
/// most.
std::vector<HitLine> TextSearch::_lines_found(std::string_view text,
                                              std::int64_t first_line) const {
  if (_patterns.size() == 1) return lines_with(_patterns.front().hits(text), text, first_line);
  struct Found {
    HitLine line;
    std::size_t patterns = 0;
  };
  std::map<std::int64_t, Found> by_number;
  std::size_t most = 0;
  for (const LinePattern& pattern : _patterns) {
    for (HitLine& line : lines_with(pattern.hits(text), text, first_line)) {
      Found& found =
          by_number.try_emplace(line.number, Found{{line.number, line.text, {}}}).first->second;
      found.line.hits.insert(found.line.hits.end(), line.hits.begin(), line.hits.end());
      most = std::max(most, ++found.patterns);
    }
  }
  std::vector<HitLine> lines;
  for (auto& [number, found] : by_number) {
    if (most == _patterns.size() && found.patterns < most) continue;
    sort_and_merge(found.line.hits);
    lines.push_back(std::move(found.line));
  }
  return lines;
}

void TextSearch::_count_line(std::int64_t file, const std::string& path) {
  const auto [counted, is_new] = _counted.try_emplace(file, _found.files.size());
  if (is_new) _found.files.emplace_back(path, 0);
  ++_found.files[counted->second].second;
}

/// Where a hit of this step goes.
std::vector<Hit>& TextSearch::_place_of(const HitLine& line, const File& file) {
  if (file.secondary) return _last;
  return _parts_first && !has_part_of_name(line, _words) ? _later : _found.hits;
}

/// The line at `at` of a piece's `lines`, with those around it.
Hit TextSearch::_hit(const File& file, std::int64_t piece, const std::vector<MarkedLine>& lines,
                     std::size_t at) const {
  const auto wanted = static_cast<std::size_t>(_options.context);
  const auto line = lines.begin() + static_cast<std::ptrdiff_t>(at);
  Hit hit{
      file.path,
      *line,
      {line - static_cast<std::ptrdiff_t>(std::min(wanted, at)), line},
      {line + 1, line + 1 + static_cast<std::ptrdiff_t>(std::min(wanted, lines.size() - at - 1))}};
  _add_neighbours(hit, piece);
  return hit;
}

/// Lines around a hit may lie in the file's pieces before and behind.
void TextSearch::_add_neighbours(Hit& hit, std::int64_t piece) const {
  const auto lines_of_piece = [this](std::int64_t id) {
    const auto row =
        _index.fetchone("SELECT text, start_line FROM code_chunks WHERE rowid = ?", {id});
    return row ? all_lines(plain_text((*row)[0].as_text()), (*row)[1].as_integer(), {})
               : std::vector<MarkedLine>();
  };
  const std::int64_t first = piece - piece % CHUNKS_PER_FILE;
  for (std::int64_t id = piece - 1; id >= first && std::ssize(hit.before) < _options.context;
       --id) {
    const std::vector<MarkedLine> lines = lines_of_piece(id);
    const auto missing = static_cast<std::ptrdiff_t>(_options.context) - std::ssize(hit.before);
    hit.before.insert(hit.before.begin(), lines.end() - std::min(missing, std::ssize(lines)),
                      lines.end());
  }
  for (std::int64_t id = piece + 1; std::ssize(hit.after) < _options.context; ++id) {
    const std::vector<MarkedLine> lines = lines_of_piece(id);
    if (lines.empty()) break;  // the file ends
    const auto missing = static_cast<std::ptrdiff_t>(_options.context) - std::ssize(hit.after);
    hit.after.insert(hit.after.end(), lines.begin(),
                     lines.begin() + std::min(missing, std::ssize(lines)));
  }
}

const TextSearch::File* TextSearch::_file_of(std::int64_t id) {
  const auto known = _files.find(id);
  if (known != _files.end()) return &known->second;
  const auto row = _index.fetchone("SELECT path FROM files WHERE id = ?", {id});
  if (!row) return nullptr;
  std::string path((*row)[0].as_text());
  const bool secondary = is_secondary(path);
  return &_files.emplace(id, File{std::move(path), secondary}).first->second;
}

void TextSearch::_end_step() {
  for (std::vector<Hit>* const hits : {&_later, &_last}) {
    for (Hit& hit : *hits)
      if (std::ssize(_found.hits) < _options.limit) _found.hits.push_back(std::move(hit));
    hits->clear();
  }
}

}  // namespace veldra::tool
