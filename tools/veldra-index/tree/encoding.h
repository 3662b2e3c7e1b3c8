#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace veldra::tool {

/// The position of the first byte that is not part of well-formed UTF-8 (RFC 3629), or npos.
std::size_t find_invalid_utf8(std::string_view text);

/// True when the bytes begin with a byte-order mark of UTF-16.
bool is_utf16(std::string_view bytes);

/// The text behind the mark; what is no character becomes U+FFFD.
std::string utf16_to_utf8(std::string_view bytes);
std::string latin1_to_utf8(std::string_view bytes);

/// Writes a code point, which is below 0x110000 and no surrogate, and gives the 1 to 4 bytes it
/// took.
std::size_t encode_utf8(char32_t code, char* out);

}  // namespace veldra::tool
