// Reading UTF-8 character by character, whatever the bytes are.
#include "veldra/utils/utf8.h"

#include <cstddef>

namespace veldra {

namespace {

/// What the first byte of a sequence says about it.
struct Lead {
  std::size_t length;    // bytes in the sequence; 0 when no sequence begins like this
  char32_t bits;         // the part of the code point in the first byte
  char32_t least_point;  // a smaller code point has a shorter form, which is the valid one
};

Lead lead_of(unsigned char byte) {
  if (byte < 0x80) return {1, byte, 0};
  if (byte >= 0xc0 && byte < 0xe0) return {2, byte & 0x1fU, 0x80};
  if (byte >= 0xe0 && byte < 0xf0) return {3, byte & 0x0fU, 0x800};
  if (byte >= 0xf0 && byte < 0xf8) return {4, byte & 0x07U, 0x10000};
  return {0, 0, 0};
}

}  // namespace

Utf8Character take_character(std::string_view& text) {
  const auto first = static_cast<unsigned char>(text.front());
  const auto [length, bits, least_point] = lead_of(first);
  char32_t point = bits;
  bool valid = length > 0 && length <= text.size();
  for (std::size_t i = 1; valid && i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    valid = (byte & 0xc0U) == 0x80U;
    point = (point << 6U) | (byte & 0x3fU);
  }
  const bool surrogate = point >= 0xd800 && point <= 0xdfff;
  if (!valid || point < least_point || point > 0x10ffff || surrogate) {
    text.remove_prefix(1);
    return {first, false};
  }
  text.remove_prefix(length);
  return {point, true};
}

}  // namespace veldra
