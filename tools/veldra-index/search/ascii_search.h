#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace veldra::tool {

/// Looks for a text of ASCII letters, their case ignored, as fast as memchr finds its rarest byte.
class AsciiSearch {
 public:
  explicit AsciiSearch(std::string_view text);

  /// Where in `other`, not before `from`, the text begins first; npos where it does not. An empty
  /// one is at `from`.
  std::size_t find_in(std::string_view other, std::size_t from = 0) const;
  std::size_t size() const { return _text.size(); }

 private:
  std::string _text;    // in lower case
  std::size_t _rarest;  // of its bytes
};

/// The longest part of `text` whose letters have no other case than the two of ASCII: "k" and "s"
/// have (https://www.unicode.org/Public/UCD/latest/ucd/CaseFolding.txt). May be empty.
std::string_view longest_ascii_part(std::string_view text);

/// True when no byte is above 127: then "k" and "s" have the two cases of ASCII only, too.
bool is_ascii(std::string_view text);

}  // namespace veldra::tool
