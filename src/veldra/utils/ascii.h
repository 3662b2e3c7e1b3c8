#pragma once

#include <algorithm>
#include <string>
#include <string_view>

/// Text operations on ASCII alone, the same in every locale. Internal.
namespace veldra {

inline bool is_space(char letter) {
  return letter == ' ' || (letter >= '\t' && letter <= '\r');
}

inline std::string_view trim_left(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  return text;
}

inline std::string_view trim(std::string_view text) {
  text = trim_left(text);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
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
