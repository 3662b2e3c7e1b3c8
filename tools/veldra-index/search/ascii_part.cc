// A quick look for a text: by its rarest byte, which memchr finds many bytes at a time.
#include "veldra-index/search/ascii_part.h"

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

AsciiPart::AsciiPart(std::string_view text) : _rarest(0) {
  for (auto begin = text.begin(); begin != text.end();) {
    const auto end = std::find_if(begin, text.end(), has_one_case_more);
    if (static_cast<std::size_t>(end - begin) > _part.size()) _part.assign(begin, end);
    begin = std::find_if_not(end, text.end(), has_one_case_more);
  }
  std::transform(_part.begin(), _part.end(), _part.begin(), lower);
  const auto rarity = [](char byte) { return FREQUENT.find(byte); };  // npos is the rarest
  if (const auto rarest = std::ranges::max_element(_part, {}, rarity); rarest != _part.end())
    _rarest = static_cast<std::size_t>(rarest - _part.begin());
}

bool AsciiPart::may_be_in(std::string_view other) const {
  if (_part.empty()) return true;
  const char small = _part[_rarest], large = upper(small);
  std::size_t next_small = 0, next_large = 0;
  for (std::size_t at = _rarest; at < other.size();) {
    if (next_small <= at) next_small = other.find(small, at);
    if (next_large <= at)
      next_large = small == large ? std::string_view::npos : other.find(large, at);
    const std::size_t found = std::min(next_small, next_large);
    if (found == std::string_view::npos) return false;
    const std::string_view here = other.substr(found - _rarest, _part.size());
    if (std::equal(here.begin(), here.end(), _part.begin(), _part.end(),
                   [](char left, char right) { return lower(left) == right; }))
      return true;
    at = found + 1;
  }
  return false;
}

}  // namespace veldra::tool
