// Finding text in lines.
#include "veldra-index/search/line_pattern.h"

#include <re2/re2.h>

#include <algorithm>

#include "veldra-index/search/search_query.h"
#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

/// The letters that full-text search takes for their first, too.
constexpr std::string_view ACCENTED[] = {"aàáâãäåāăą",  "cçćĉċč",    "dď",   "eèéêëēĕėęě", "gĝğġģ",
                                         "hĥ",          "iìíîïĩīĭį", "jĵ",   "kķ",         "lĺļľ",
                                         "nñńņň",       "oòóôõöōŏő", "rŕŗř", "sśŝşš",      "tţť",
                                         "uùúûüũūŭůűų", "wŵ",        "yýÿŷ", "zźżž"};

/// In a text of many lines `^` and `$` are the ends of each, and no hit goes over one.
std::unique_ptr<RE2> compile(std::string_view expression, bool case_counts) {
  RE2::Options options(RE2::Quiet);
  options.set_case_sensitive(case_counts);
  options.set_never_nl(true);
  options.set_max_mem(64 << 20);
  auto compiled =
      std::make_unique<RE2>(re2::StringPiece("(?m)" + std::string(expression)), options);
  if (!compiled->ok()) {
    throw Failure("the text cannot be searched for: " + compiled->error() +
                  (compiled->error_code() == RE2::ErrorBadUTF8 ? " (it is not UTF-8)" : "") +
                  "; -F searches for it as it stands");
  }
  return compiled;
}

std::string quoted(std::string_view text) {
  return RE2::QuoteMeta(re2::StringPiece(text.data(), text.size()));
}

/// What finds `text` in ASCII, where that says the same as an expression.
std::optional<AsciiSearch> literal_of(std::string_view text, bool case_counts) {
  if (case_counts || text.empty() || !is_ascii(text) || text.find('\n') != text.npos) return {};
  return AsciiSearch(text);
}

std::string with_accents(std::string_view word) {
  std::string expression;
  for (const char byte : word) {
    const auto* const letters =
        std::find_if(std::begin(ACCENTED), std::end(ACCENTED),
                     [byte](std::string_view all) { return all.front() == (byte | 0x20); });
    if (letters == std::end(ACCENTED)) {
      expression += byte;  // a digit, an underscore, another letter
      continue;
    }
    expression += '[';
    expression += byte;
    expression.append(letters->substr(1)) += ']';
  }
  return expression;
}

}  // namespace

LinePattern::LinePattern(std::unique_ptr<RE2> expression, Edges edges)
    : _expression(std::move(expression)), _edges(edges) {}
LinePattern::LinePattern(LinePattern&&) noexcept = default;
LinePattern& LinePattern::operator=(LinePattern&&) noexcept = default;
LinePattern::~LinePattern() = default;

LinePattern LinePattern::text(std::string_view text, bool case_counts, Edges edges) {
  LinePattern pattern(compile(quoted(text), case_counts), edges);
  pattern._part.emplace(longest_ascii_part(text));
  pattern._literal = literal_of(text, case_counts);
  return pattern;
}

LinePattern LinePattern::word(std::string_view word, bool case_counts, Edges edges) {
  LinePattern pattern(compile(is_ascii(word) ? with_accents(word) : quoted(word), case_counts),
                      edges);
  pattern._literal = literal_of(word, case_counts);
  return pattern;
}

LinePattern LinePattern::regex(std::string_view expression, bool case_counts, Edges edges) {
  return {compile(expression, case_counts), edges};
}

bool LinePattern::may_be_in(std::string_view text) const {
  if (_part && _part->find_in(text) == std::string_view::npos) return false;
  return _expression->Match(re2::StringPiece(text.data(), text.size()), 0, text.size(),
                            RE2::UNANCHORED, nullptr, 0);
}

std::optional<Range> LinePattern::_first_hit(std::string_view text, std::size_t at,
                                             const AsciiSearch* literal) const {
  if (literal != nullptr) {
    const std::size_t begin = literal->find_in(text, at);
    if (begin == std::string_view::npos) return std::nullopt;
    return Range(begin, begin + literal->size());
  }
  re2::StringPiece match;
  if (!_expression->Match(re2::StringPiece(text.data(), text.size()), at, text.size(),
                          RE2::UNANCHORED, &match, 1))
    return std::nullopt;
  const auto begin = static_cast<std::size_t>(match.data() - text.data());
  return Range(begin, begin + match.size());
}

std::vector<Range> LinePattern::hits(std::string_view text) const {
  std::vector<Range> found;
  const AsciiSearch* const literal = _literal && is_ascii(text) ? &*_literal : nullptr;
  for (std::size_t at = 0; at <= text.size();) {
    const std::optional<Range> hit = _first_hit(text, at, literal);
    if (!hit) break;
    const auto [begin, end] = *hit;
    const bool begins = begin == 0 || !is_word_byte(text[begin - 1]);
    const bool ends = end == text.size() || !is_word_byte(text[end]);
    if ((begins || _edges == Edges::Anywhere) && (ends || _edges != Edges::Both)) {
      found.push_back(*hit);
      at = std::max(end, begin + 1);
    } else {
      at = begin + 1;
    }
  }
  return found;
}

}  // namespace veldra::tool
