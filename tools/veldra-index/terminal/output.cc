// Printing: JSON, tables, colours, numbers.
#include "veldra-index/terminal/output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>

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

std::string hexadecimal(std::span<const std::byte> bytes) {
  static constexpr std::string_view DIGITS = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += DIGITS[std::to_integer<std::size_t>(byte >> 4)];
    text += DIGITS[std::to_integer<std::size_t>(byte & std::byte{15})];
  }
  return text;
}

}  // namespace

void print_json(const Json& value) {
  std::cout << value.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

Json to_json(const ValueView& value) {
  switch (value.type()) {
    case StorageClass::Null:
      return nullptr;
    case StorageClass::Integer:
      return value.as_integer();
    case StorageClass::Real:
      return value.as_real();
    case StorageClass::Text:
      return std::string(value.as_text());
    case StorageClass::Blob:
      break;
  }
  return hexadecimal(value.as_blob());
}

std::string to_text(const ValueView& value) {
  const Json json = to_json(value);
  if (json.is_null()) return {};
  return json.is_string() ? json.get<std::string>() : json.dump();
}

std::string one_line(std::string_view text) {
  std::string line(text);
  for (char& byte : line) {
    const auto code = static_cast<unsigned char>(byte);
    if ((code < 0x20 && byte != '\t') || code == 0x7F) byte = ' ';
  }
  return line;
}

std::string Style::_paint(std::string_view code, std::string_view text) const {
  if (!_color) return std::string(text);
  std::string painted = "\033[";
  return painted.append(code).append("m").append(text).append("\033[0m");
}

void Table::print() const {
  std::vector<std::size_t> widths;
  for (const std::string& heading : _headings) widths.push_back(width_of(heading));
  for (const auto& line : _lines) {
    for (std::size_t at = 0; at < widths.size(); ++at)
      widths[at] = std::max(widths[at], width_of(line[at]));
  }
  const auto print_line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t at = 0; at < widths.size(); ++at) {
      const std::string padding(widths[at] - width_of(cells[at]), ' ');
      text += at == 0 ? "" : "  ";
      text += is_number(cells[at]) ? padding + cells[at] : cells[at] + padding;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    std::cout << text << '\n';
  };
  print_line(_headings);
  for (const auto& line : _lines) print_line(line);
}

std::string with_commas(std::int64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t at = digits.size(); at > (number < 0 ? 4U : 3U);) digits.insert(at -= 3, 1, ',');
  return digits;
}

std::string as_size(std::int64_t bytes) {
  static constexpr std::array<const char*, 4> UNITS = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  double size = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (size >= 1024 && unit + 1 < UNITS.size()) {
    size /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f %s", size, UNITS[unit]);
  return text.data();
}

}  // namespace veldra::tool
