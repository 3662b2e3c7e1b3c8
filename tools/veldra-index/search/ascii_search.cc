// A quick look for a text: by its rarest byte, which memchr finds many bytes at a time.
#include "veldra-index/search/ascii_search.h"

#include <algorithm>

namespace veldra::tool {
namespace {

/// The letters of source text, the most frequent first; every other byte is rarer.
constexpr std::string_view FREQUENT = " e_traonicdlpumfhgybvw0x1jqz";

char lower(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte | 0x20) : byte;
}

char upper(char byte) {
  return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte & ~0x20) : byte;
}

bool has_one_case_more(char byte) {
  return static_cast<unsigned char>(byte) >= 0x80 || lower(byte) == 'k' || lower(byte) == 's';
}

}  // namespace

AsciiSearch::AsciiSearch(std::string_view text) : _text(text), _rarest(0) {
  std::transform(_text.begin(), _text.end(), _text.begin(), lower);
  const auto rarity = [](char byte) { return FREQUENT.find(byte); };  // npos is the rarest
  if (const auto rarest = std::ranges::max_element(_text, {}, rarity); rarest != _text.end())
    _rarest = static_cast<std::size_t>(rarest - _text.begin());
}

std::size_t AsciiSearch::find_in(std::string_view other, std::size_t from) const {
  if (_text.empty()) return from;
  const char small = _text[_rarest], large = upper(small);
  std::size_t next_small = 0, next_large = 0;
  for (std::size_t at = from + _rarest; at < other.size();) {
    if (next_small <= at) next_small = other.find(small, at);
    if (next_large <= at)
      next_large = small == large ? std::string_view::npos : other.find(large, at);
    const std::size_t found = std::min(next_small, next_large);
    if (found == std::string_view::npos) break;
    const std::string_view here = other.substr(found - _rarest, _text.size());
    if (std::equal(here.begin(), here.end(), _text.begin(), _text.end(),
                   [](char left, char right) { return lower(left) == right; }))
      return found - _rarest;
    at = found + 1;
  }
  return std::string_view::npos;
}

std::string_view longest_ascii_part(std::string_view text) {
  std::string_view longest;
  for (auto begin = text.begin(); begin != text.end();) {
    const auto end = std::find_if(begin, text.end(), has_one_case_more);
    if (static_cast<std::size_t>(end - begin) > longest.size()) longest = {begin, end};
    begin = std::find_if_not(end, text.end(), has_one_case_more);
  }
  return longest;
}

bool is_ascii(std::string_view text) {
  // Without a way out, so that the compiler looks at many bytes at a time.
  unsigned char any = 0;
  for (const char byte : text) any |= static_cast<unsigned char>(byte);
  return any < 0x80;
}

}  // namespace veldra::tool
