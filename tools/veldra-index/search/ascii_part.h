#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace veldra::tool {

/// A quick look whether a text may be in another one, letter case ignored.
///
/// It knows the longest part of the text whose letters have no other case than the two of ASCII:
/// "k" and "s" have (https://www.unicode.org/Public/UCD/latest/ucd/CaseFolding.txt).
class AsciiPart {
 public:
  explicit AsciiPart(std::string_view text);

  /// False only when the whole text is not in `other`, whatever the case of its letters.
  bool may_be_in(std::string_view other) const;

 private:
  std::string _part;    // in lower case; empty when there is none
  std::size_t _rarest;  // of its bytes
};

}  // namespace veldra::tool
