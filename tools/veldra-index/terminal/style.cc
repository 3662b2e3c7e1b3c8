// Colours, and texts that are safe to show.
#include "veldra-index/terminal/style.h"

namespace veldra::tool {

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

}  // namespace veldra::tool
