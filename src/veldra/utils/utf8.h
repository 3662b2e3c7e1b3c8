#pragma once

#include <string_view>

namespace veldra {

/// One character taken from the front of a text. Internal.
///
/// Its code point, or the byte when it is not part of valid UTF-8
/// (https://www.rfc-editor.org/rfc/rfc3629#section-4: shortest form, no surrogates).
struct Utf8Character {
  char32_t code_point;
  bool valid;

  friend bool operator==(const Utf8Character&, const Utf8Character&) = default;
};

/// Takes the first character off `text`, which must not be empty. Bytes that are no UTF-8 are taken
/// one by one, so any text comes to its end.
Utf8Character take_character(std::string_view& text);

}  // namespace veldra
