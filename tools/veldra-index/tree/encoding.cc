// Text encodings of source files.
#include "veldra-index/tree/encoding.h"

#include <cstdint>
#include <cstring>

namespace veldra::tool {
namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;

void append_utf8(char32_t code, std::string& text) {
  char bytes[4];
  text.append(bytes, encode_utf8(code, bytes));
}

bool is_continuation(unsigned char byte) {
  return (byte & 0xC0U) == 0x80U;
}

/// The length of the sequence at `position`, 0 when it is not well-formed.
std::size_t sequence_length(std::string_view text, std::size_t position) {
  const auto byte = [&](std::size_t offset) {
    return position + offset < text.size() ? static_cast<unsigned char>(text[position + offset])
                                           : static_cast<unsigned char>(0);
  };
  const unsigned char first = byte(0);
  const unsigned char second = byte(1);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4 || !is_continuation(second)) return 0;
  if (first < 0xE0) return 2;
  if (!is_continuation(byte(2))) return 0;
  if (first < 0xF0) {
    const bool overlong = first == 0xE0 && second < 0xA0;
    const bool surrogate = first == 0xED && second >= 0xA0;
    return overlong || surrogate ? 0 : 3;
  }
  const bool overlong = first == 0xF0 && second < 0x90;
  const bool too_high = first == 0xF4 && second >= 0x90;
  return overlong || too_high || !is_continuation(byte(3)) ? 0 : 4;
}

}  // namespace

std::size_t find_invalid_utf8(std::string_view text) {
  std::size_t position = 0;
  while (position < text.size()) {
    std::uint64_t word = 0;
    if (position + sizeof word <= text.size()) {  // source is mostly ASCII: eight bytes at a time
      std::memcpy(&word, text.data() + position, sizeof word);
      if ((word & 0x8080808080808080U) == 0) {
        position += sizeof word;
        continue;
      }
    }
    const std::size_t length = sequence_length(text, position);
    if (length == 0) return position;
    position += length;
  }
  return std::string_view::npos;
}

bool is_utf16(std::string_view bytes) {
  return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

std::string utf16_to_utf8(std::string_view bytes) {
  const bool little_endian = bytes.starts_with("\xFF\xFE");
  const auto unit = [&](std::size_t position) -> char32_t {
    const auto low = static_cast<unsigned char>(bytes[position + (little_endian ? 0 : 1)]);
    const auto high = static_cast<unsigned char>(bytes[position + (little_endian ? 1 : 0)]);
    return static_cast<char32_t>(high << 8 | low);
  };
  const auto is_high = [](char32_t code) { return code >= 0xD800 && code < 0xDC00; };
  const auto is_low = [](char32_t code) { return code >= 0xDC00 && code < 0xE000; };
  std::string text;
  for (std::size_t position = 2; position + 1 < bytes.size(); position += 2) {
    char32_t code = unit(position);
    if (is_high(code) && position + 3 < bytes.size() && is_low(unit(position + 2))) {
      position += 2;
      code = 0x10000 + ((code - 0xD800) << 10) + (unit(position) - 0xDC00);
    } else if (is_high(code) || is_low(code)) {
      code = REPLACEMENT;
    }
    append_utf8(code, text);
  }
  return text;
}

std::string latin1_to_utf8(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) append_utf8(static_cast<unsigned char>(byte), text);
  return text;
}

std::size_t encode_utf8(char32_t code, char* out) {
  const auto tail = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
  if (code < 0x80) {
    out[0] = static_cast<char>(code);
    return 1;
  }
  if (code < 0x800) {
    out[0] = static_cast<char>(0xC0 | code >> 6);
    out[1] = tail(0);
    return 2;
  }
  if (code < 0x10000) {
    out[0] = static_cast<char>(0xE0 | code >> 12);
    out[1] = tail(6);
    out[2] = tail(0);
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | code >> 18);
  out[1] = tail(12);
  out[2] = tail(6);
  out[3] = tail(0);
  return 4;
}

}  // namespace veldra::tool
