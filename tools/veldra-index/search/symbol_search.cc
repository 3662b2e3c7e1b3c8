// Definitions by name.
#include "veldra-index/search/symbol_search.h"

#include "veldra-index/search/name_parts.h"
#include "veldra/models/symbol.h"

namespace veldra::tool {

std::string_view last_name(std::string_view name) {
  const std::size_t colons = name.rfind("::");
  if (colons != std::string_view::npos) return name.substr(colons + 2);
  const std::size_t dot = name.rfind('.');
  return dot != std::string_view::npos && dot + 1 < name.size() ? name.substr(dot + 1) : name;
}

std::vector<FoundSymbol> SymbolSearch::run() {
  const std::string_view name = _options.name;
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

void SymbolSearch::_add(const std::string& condition, Params parameters, bool exact) {
  std::string text =
      "SELECT s.name, s.fqn, s.kind, f.path, s.start_line, s.end_line"
      " FROM symbols s JOIN files f ON f.id = s.file_id"
      " WHERE " +
      listed_sql() + " AND " + condition;
  if (_options.kind) {
    text += " AND s.kind = ?";
    parameters.emplace_back(*_options.kind);
  }
  if (_options.path) {
    text += " AND (path_glob(f.path, ?) OR path_under(f.path, ?))";
    parameters.emplace_back(*_options.path);
    parameters.emplace_back(*_options.path);
  }
  if (!_options.below.empty()) {
    text += " AND path_under(f.path, ?)";
    parameters.emplace_back(_options.below);
  }
  text += " ORDER BY f.path, s.start_line, s.id LIMIT ?";
  parameters.emplace_back(_left());
  const auto number = [](const ValueView& value) {
    return value.is_null() ? std::nullopt : std::optional(value.as_integer());
  };
  const auto text_of = [](const ValueView& value) {
    return value.is_null() ? std::string() : std::string(value.as_text());
  };
  for (const Row& row : _index.fetchall(text, parameters)) {
    _found.push_back({text_of(row[0]), text_of(row[1]), text_of(row[2]), text_of(row[3]),
                      number(row[4]), number(row[5]), exact});
  }
}

}  // namespace veldra::tool
