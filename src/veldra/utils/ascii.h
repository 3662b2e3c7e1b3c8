#pragma once

#include <algorithm>
#include <string>
#include <string_view>

/// Text operations on ASCII alone, the same in every locale. Internal.
namespace veldra {

inline constexpr std::string_view ASCII_SPACE = " \t\n\v\f\r";

inline std::string_view trim_left(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(ASCII_SPACE), text.size()));
}

inline std::string_view trim(std::string_view text) {
  text = trim_left(text);
  return text.substr(0, text.find_last_not_of(ASCII_SPACE) + 1);
}

inline char lower_case(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

inline std::string lower_case(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) letter = lower_case(letter);
  return lower;
}

inline bool equal_ignoring_case(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right,
                            [](char a, char b) { return lower_case(a) == lower_case(b); });
}

/// `prefix` is in lower case.
inline bool begins_ignoring_case(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(),
                    [](char wanted, char letter) { return wanted == lower_case(letter); });
}

}  // namespace veldra
