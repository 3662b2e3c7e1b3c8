#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "veldra-index/search/ascii_search.h"
#include "veldra-index/search/hit_lines.h"

namespace re2 {
class RE2;
}

namespace veldra::tool {

/// What a line must hold.
///
/// Thread safety: const members, from any thread.
class LinePattern {
 public:
  /// Where a hit must begin or end with a word.
  enum class Edges { Anywhere, Begin, Both };

  /// `text` as it stands.
  static LinePattern text(std::string_view text, bool case_counts, Edges edges = Edges::Anywhere);
  /// A word of which an "a" is also an "á"; where it has an accent itself, that counts.
  static LinePattern word(std::string_view word, bool case_counts, Edges edges);
  /// A regular expression of RE2 (https://github.com/google/re2/wiki/Syntax). Throws `Failure` when
  /// it is wrong.
  static LinePattern regex(std::string_view expression, bool case_counts, Edges edges);

  LinePattern(LinePattern&&) noexcept;
  LinePattern& operator=(LinePattern&&) noexcept;
  ~LinePattern();

  /// False only when no line of `text` has a hit.
  bool may_be_in(std::string_view text) const;
  /// In order, none overlapping, none over the end of a line of `text`.
  std::vector<Range> hits(std::string_view text) const;

 private:
  LinePattern(std::unique_ptr<re2::RE2> expression, Edges edges);

  /// Where `text` has the first hit not before `at`, whatever its edges are. `literal`, where there
  /// is one, is looked for instead of the expression.
  std::optional<Range> _first_hit(std::string_view text, std::size_t at,
                                  const AsciiSearch* literal) const;

  std::unique_ptr<re2::RE2> _expression;
  Edges _edges;
  std::optional<AsciiSearch> _part;     // which every hit holds
  std::optional<AsciiSearch> _literal;  // all that the expression finds in ASCII, only faster
};

}  // namespace veldra::tool
