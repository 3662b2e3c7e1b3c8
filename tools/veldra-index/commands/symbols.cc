// veldra-index symbols: definitions by name.
#include <iostream>

#include "veldra-index/commands/commands.h"
#include "veldra-index/search/name_parts.h"
#include "veldra-index/search/search_query.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/output.h"
#include "veldra-index/tree/index_place.h"

namespace veldra::tool {
namespace {

struct Found {
  std::string name, fqn, kind, file;
  std::optional<std::int64_t> line, end_line;
  bool exact;
};

/// The part of a qualified name behind its last separator.
std::string_view last_name(std::string_view name) {
  const std::size_t colons = name.rfind("::");
  if (colons != std::string_view::npos) return name.substr(colons + 2);
  const std::size_t dot = name.rfind('.');
  return dot != std::string_view::npos && dot + 1 < name.size() ? name.substr(dot + 1) : name;
}

class SymbolSearch {
 public:
  SymbolSearch(Database& index, const SymbolsOptions& query) : _index(index), _query(query) {}

  /// Those of exactly this name first, then those that have it as a part.
  std::vector<Found> run() {
    const std::string_view name = _query.name;
    if (name.find_first_of("*?") != std::string_view::npos) {
      _add("s.name GLOB ?", {name}, true);
      return std::move(_found);
    }
    const std::string_view last = last_name(name);
    if (last == name) {
      _add("s.name = ?", {name}, true);
    } else {
      _add(
          "s.name = ? AND (s.fqn = ? OR substr(s.fqn, -length(?) - 2) = '::' || ?"
          " OR substr(s.fqn, -length(?) - 1) = '.' || ?)",
          {last, name, name, name, name, name}, true);
    }
    for (const std::string& other : names_with_part(_index, last, _left())) {
      if (_left() == 0) break;
      if (other != last) _add("s.name = ?", {other}, false);
    }
    return std::move(_found);
  }

 private:
  std::size_t _left() const { return static_cast<std::size_t>(_query.limit) - _found.size(); }

  void _add(const std::string& condition, Params parameters, bool exact) {
    std::string text =
        "SELECT s.name, s.fqn, s.kind, f.path, s.start_line, s.end_line"
        " FROM symbols s JOIN files f ON f.id = s.file_id"
        " WHERE s.kind <> 'anchor' AND " +
        condition;
    if (_query.kind) {
      text += " AND s.kind = ?";
      parameters.emplace_back(*_query.kind);
    }
    if (_query.path) {
      text += " AND path_glob(f.path, ?)";
      parameters.emplace_back(*_query.path);
    }
    text += " ORDER BY f.path, s.start_line, s.id LIMIT ?";
    parameters.emplace_back(_left());
    const auto number = [](const ValueView& value) {
      return value.is_null() ? std::nullopt : std::optional(value.as_integer());
    };
    for (const Row& row : _index.fetchall(text, parameters)) {
      _found.push_back({to_text(row[0]), to_text(row[1]), to_text(row[2]), to_text(row[3]),
                        number(row[4]), number(row[5]), exact});
    }
  }

  Database& _index;
  const SymbolsOptions& _query;
  std::vector<Found> _found;
};

Json as_json(const std::vector<Found>& found) {
  Json json = Json::array();
  for (const Found& symbol : found) {
    Json entry;
    entry["name"] = symbol.name;
    entry["fqn"] = symbol.fqn;
    entry["kind"] = symbol.kind;
    entry["file"] = symbol.file;
    entry["line"] = symbol.line ? Json(*symbol.line) : Json();
    entry["end_line"] = symbol.end_line ? Json(*symbol.end_line) : Json();
    entry["exact"] = symbol.exact;
    json.push_back(std::move(entry));
  }
  return json;
}

}  // namespace

int symbols(const Options& options, const SymbolsOptions& query) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  const std::vector<Found> found = SymbolSearch(*index, query).run();
  if (options.json) {
    print_json(as_json(found));
    return EXIT_DONE;
  }
  const Style style(options.color);
  for (const Found& symbol : found) {
    std::cout << style.path(one_line(symbol.file)) << ':'
              << style.number(std::to_string(symbol.line.value_or(1))) << ": " << symbol.kind << ' '
              << style.hit(one_line(symbol.fqn)) << '\n';
  }
  if (found.empty() && !options.quiet) std::cout << "no symbol is named " << query.name << '\n';
  return EXIT_DONE;
}

}  // namespace veldra::tool
