// Searching the texts of the files.
#include "veldra-index/search/text_search.h"

#include <algorithm>

#include "veldra-index/search/name_parts.h"
#include "veldra-index/search/search_query.h"

namespace veldra::tool {
namespace {

/// How many names a word may stand for.
constexpr std::size_t MOST_NAMES = 50;
/// How many matches are ranked: a word that is everywhere says little, and ranking all of it is
/// slow.
constexpr std::int64_t MOST_RANKED = 8000;
/// How many chunks are looked through for one in which a hit counts.
constexpr std::int64_t CHUNKS_PER_HIT = 10;

constexpr std::string_view FROM_CHUNKS =
    " FROM code_chunks JOIN files ON files.id = code_chunks.rowid / 1048576";

/// Words that begin with all of `words`.
std::string match_of_beginnings(const std::vector<std::string>& words) {
  std::string match;
  for (const std::string& word : words)
    match += (match.empty() ? "" : " AND ") + quote_term(word) + "*";
  return match;
}

/// Takes away the hits that have none of `words` as a part.
void keep_parts(std::vector<MarkedLine>& lines, const std::vector<std::string>& words) {
  for (MarkedLine& line : lines) {
    std::erase_if(line.hits, [&](const std::pair<std::size_t, std::size_t>& hit) {
      const std::string_view name =
          std::string_view(line.text).substr(hit.first, hit.second - hit.first);
      return std::none_of(words.begin(), words.end(),
                          [name](const std::string& word) { return has_part(name, word); });
    });
  }
}

}  // namespace

std::vector<Hit> TextSearch::run() {
  if (_options.fts) {
    _add_matches(_options.text, {});
    return std::move(_hits);
  }
  const SearchQuery query = parse_search(_options.text);
  _add_matches(query.match, {query.literal, {}});
  if (query.only_words) {
    if (!_full()) _add_matches(_match_of_names(query.words), {});
    if (!_full()) _add_matches(match_of_beginnings(query.words), {{}, query.words});
  } else if (query.match.empty() && !query.literal.empty()) {
    _scan(query.literal);
  }
  return std::move(_hits);
}

/// Each word, or a name of which it is a part; empty when there is no such name.
std::string TextSearch::_match_of_names(const std::vector<std::string>& words) const {
  std::string match;
  bool has_names = false;
  for (const std::string& word : words) {
    match += (match.empty() ? "(" : " AND (") + quote_term(word);
    for (const std::string& name : names_with_part(_index, word, MOST_NAMES)) {
      match += " OR " + quote_term(name);
      has_names = true;
    }
    match += ')';
  }
  return has_names ? match : std::string();
}

void TextSearch::_add_matches(const std::string& match, const Wanted& wanted) {
  if (match.empty()) return;
  Conditions conditions{"code_chunks MATCH ?", {match}};
  _hold(conditions, wanted.literal);
  if (!wanted.literal.empty()) {
    _add("text", std::move(conditions), "code_chunks.rowid", wanted);
    return;
  }
  const std::string first = "SELECT code_chunks.rowid AS id" + std::string(FROM_CHUNKS) +
                            " WHERE " + conditions.text + " LIMIT " + std::to_string(MOST_RANKED);
  conditions.text += " AND code_chunks.rowid <= (SELECT max(id) FROM (" + first + "))";
  const Params once = conditions.parameters;
  conditions.parameters.insert(conditions.parameters.end(), once.begin(), once.end());
  _add("highlight(code_chunks, 0, char(2), char(3))", std::move(conditions), "rank", wanted);
}

/// Text without a word in it: every chunk is looked through, until there are enough.
void TextSearch::_scan(const std::vector<std::string>& literal) {
  Conditions conditions{"TRUE", {}};
  _hold(conditions, literal);
  _add("text", std::move(conditions), "code_chunks.rowid", {literal, {}});
}

void TextSearch::_hold(Conditions& conditions, const std::vector<std::string>& literal) const {
  for (const std::string& text : literal) {
    conditions.text += " AND text LIKE ? ESCAPE '\\'";
    conditions.parameters.emplace_back(like_pattern(text));
  }
  if (_options.path) {
    conditions.text += " AND path_glob(files.path, ?)";
    conditions.parameters.emplace_back(*_options.path);
  }
}

void TextSearch::_add(const std::string& text, Conditions conditions, const std::string& order,
                      const Wanted& wanted) {
  const std::string query = "SELECT code_chunks.rowid, files.path, start_line, " + text +
                            std::string(FROM_CHUNKS) + " WHERE " + conditions.text + " ORDER BY " +
                            order + " LIMIT ?";
  // Lines that were found before may come again.
  const auto chunks = _options.limit + static_cast<std::int64_t>(_seen.size());
  conditions.parameters.emplace_back(wanted.parts.empty() ? chunks : chunks * CHUNKS_PER_HIT);
  for (const Row& row : _index.fetchall(query, conditions.parameters)) {
    if (_full()) return;
    _add_chunk(row, wanted);
  }
}

void TextSearch::_add_chunk(const Row& row, const Wanted& wanted) {
  const std::string file(row[1].as_text());
  std::vector<MarkedLine> lines = lines_of(row[3].as_text(), row[2].as_integer());
  if (!wanted.parts.empty()) keep_parts(lines, wanted.parts);
  if (!wanted.literal.empty()) mark_texts(lines, wanted.literal);
  if (_options.context > 0) _add_neighbours(row[0].as_integer(), lines);
  const auto context = static_cast<std::ptrdiff_t>(_options.context);
  for (auto line = lines.begin(); line != lines.end() && !_full(); ++line) {
    if (line->hits.empty() || !_seen.emplace(file, line->number).second) continue;
    const auto first = line - std::min(context, line - lines.begin());
    const auto last = line + 1 + std::min(context, lines.end() - line - 1);
    _hits.push_back({file, *line, {first, line}, {line + 1, last}});
  }
}

/// Lines around a hit may lie in the file's chunk before or behind.
void TextSearch::_add_neighbours(std::int64_t chunk, std::vector<MarkedLine>& lines) const {
  static constexpr std::string_view QUERY =
      "SELECT text, start_line FROM code_chunks WHERE rowid = ?";
  const auto context = static_cast<std::ptrdiff_t>(_options.context);
  if (const auto row = _index.fetchone(QUERY, {chunk - 1})) {
    const auto before = lines_of((*row)[0].as_text(), (*row)[1].as_integer());
    lines.insert(lines.begin(), before.end() - std::min(context, std::ssize(before)), before.end());
  }
  if (const auto row = _index.fetchone(QUERY, {chunk + 1})) {
    const auto after = lines_of((*row)[0].as_text(), (*row)[1].as_integer());
    lines.insert(lines.end(), after.begin(), after.begin() + std::min(context, std::ssize(after)));
  }
}

}  // namespace veldra::tool
