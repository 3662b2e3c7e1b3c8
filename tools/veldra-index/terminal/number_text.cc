// Numbers for people.
#include "veldra-index/terminal/number_text.h"

#include <array>
#include <cstdio>

namespace veldra::tool {

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

std::string counted(std::int64_t number, const std::string& one, const std::string& several) {
  return with_commas(number) + ' ' + (number == 1 ? one : several);
}

}  // namespace veldra::tool
