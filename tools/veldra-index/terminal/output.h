#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/storage/database.h"

namespace veldra::tool {

/// Members keep the order in which they were set.
using Json = nlohmann::ordered_json;

/// Prints one JSON value, indented; bytes that are no UTF-8 become U+FFFD.
void print_json(const Json& value);

/// A row's column as JSON: null, number, text; a blob as its hexadecimal digits.
Json to_json(const ValueView& value);
std::string to_text(const ValueView& value);

/// Control characters become blanks: a text of the repository must not steer the terminal.
std::string one_line(std::string_view text);

/// Colours of the terminal, or nothing.
class Style {
 public:
  explicit Style(bool color) : _color(color) {}

  std::string path(std::string_view text) const { return _paint("35", text); }
  std::string number(std::string_view text) const { return _paint("32", text); }
  std::string hit(std::string_view text) const { return _paint("1;31", text); }
  std::string faint(std::string_view text) const { return _paint("2", text); }

 private:
  std::string _paint(std::string_view code, std::string_view text) const;

  bool _color;
};

/// Prints lines of cells in columns as wide as needed, numbers to the right.
class Table {
 public:
  explicit Table(std::vector<std::string> headings) : _headings(std::move(headings)) {}

  void add(std::vector<std::string> cells) { _lines.push_back(std::move(cells)); }
  void print() const;

 private:
  std::vector<std::string> _headings;
  std::vector<std::vector<std::string>> _lines;
};

/// "12,345" and "1.5 MiB".
std::string with_commas(std::int64_t number);
std::string as_size(std::int64_t bytes);

}  // namespace veldra::tool
