#pragma once

#include <string>
#include <string_view>

namespace veldra::tool {

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

}  // namespace veldra::tool
