// Columns.
#include "veldra-index/terminal/table.h"

#include <algorithm>
#include <iostream>
#include <string_view>

namespace veldra::tool {
namespace {

/// Characters, not bytes: what follows the first byte of one takes no column.
std::size_t width_of(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
  }));
}

bool is_number(std::string_view text) {
  return text.find_first_of("0123456789") != std::string_view::npos &&
         text.find_first_not_of("0123456789.,-") == std::string_view::npos;
}

}  // namespace

void Table::add(std::vector<std::string> cells) {
  if (!_widths.empty()) return _print_line(cells);
  _lines.push_back(std::move(cells));
  if (_lines.size() == LINES_MEASURED) print();
}

void Table::print() {
  if (_widths.empty()) {
    for (const std::string& heading : _headings) _widths.push_back(width_of(heading));
    for (const auto& line : _lines)
      for (std::size_t at = 0; at < _widths.size(); ++at)
        _widths[at] = std::max(_widths[at], width_of(line[at]));
    _print_line(_headings);
  }
  for (const auto& line : _lines) _print_line(line);
  _lines.clear();
}

void Table::_print_line(const std::vector<std::string>& cells) const {
  std::string text;
  for (std::size_t at = 0; at < _widths.size(); ++at) {
    const std::string padding(_widths[at] - std::min(_widths[at], width_of(cells[at])), ' ');
    text += at == 0 ? "" : "  ";
    text += is_number(cells[at]) ? padding + cells[at] : cells[at] + padding;
  }
  text.erase(text.find_last_not_of(' ') + 1);
  std::cout << text << '\n';
}

}  // namespace veldra::tool
