// Paths below a directory, and by pattern.
#include "veldra/utils/path_filter.h"

#include <algorithm>
#include <optional>

#include "veldra/utils/utf8.h"

namespace veldra {

namespace {

bool is_absolute(std::string_view path) {
  return path.starts_with('/');
}

/// Takes the next component off `rest`; none at the end.
std::optional<std::string_view> take_component(std::string_view& rest) {
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('/'), rest.size());
    const std::string_view component = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (!component.empty() && component != ".") return component;
  }
  return std::nullopt;
}

/// Where the set that follows a `[` ends: behind its `]`. None when it is never closed.
std::optional<std::size_t> end_of_set(std::string_view set) {
  std::size_t at = set.starts_with('!') || set.starts_with('^') ? 1 : 0;
  // From the second member on, a `]` closes the set.
  for (bool first = true; at < set.size(); ++at, first = false) {
    if (set[at] == ']' && !first) return at + 1;
    if (set[at] == '\\' && at + 1 < set.size()) ++at;
  }
  return std::nullopt;
}

Utf8Character take_member(std::string_view& members) {
  if (members.starts_with('\\') && members.size() > 1) members.remove_prefix(1);
  return take_character(members);
}

/// Whether `character` is in `set`, the text between the brackets.
bool is_in_set(const Utf8Character& character, std::string_view set) {
  const bool negated = set.starts_with('!') || set.starts_with('^');
  set.remove_prefix(negated ? 1 : 0);
  bool found = false;
  while (!set.empty()) {
    const Utf8Character low = take_member(set);
    Utf8Character high = low;
    if (set.size() > 1 && set.front() == '-') {
      set.remove_prefix(1);
      high = take_member(set);
    }
    found = found ||
            (low.valid == character.valid && high.valid == character.valid &&
             low.code_point <= character.code_point && character.code_point <= high.code_point);
  }
  return found != negated;
}

/// Takes one step of `pattern`, which does not begin with a star, over the first character of
/// `text`. False, with both texts anywhere, when it does not match.
bool match_one(std::string_view& text, std::string_view& pattern) {
  const Utf8Character character = take_character(text);
  const char kind = pattern.front();
  if (kind == '?') {
    pattern.remove_prefix(1);
    return true;
  }
  if (kind == '[') {
    const std::optional<std::size_t> end = end_of_set(pattern.substr(1));
    if (!end) return false;
    const std::string_view set = pattern.substr(1, *end - 1);
    pattern.remove_prefix(*end + 1);
    return is_in_set(character, set);
  }
  return take_member(pattern) == character;
}

/// One component against one component of the pattern.
bool component_matches(std::string_view text, std::string_view pattern) {
  // Only the last star is ever tried again: whatever an earlier one could still take, the last one
  // can take as well. That keeps the time to the product of the lengths.
  std::optional<std::string_view> retry_text;
  std::string_view retry_pattern;
  while (!text.empty() || !pattern.empty()) {
    if (pattern.starts_with('*')) {
      pattern.remove_prefix(1);
      retry_text = text;
      retry_pattern = pattern;
      continue;
    }
    if (!text.empty() && !pattern.empty() && match_one(text, pattern)) continue;
    if (!retry_text || retry_text->empty()) return false;
    take_character(*retry_text);
    text = *retry_text;
    pattern = retry_pattern;
  }
  return true;
}

}  // namespace

bool path_is_under(std::string_view path, std::string_view directory) {
  if (is_absolute(path) != is_absolute(directory)) return false;
  while (const std::optional<std::string_view> expected = take_component(directory))
    if (take_component(path) != expected) return false;
  return true;
}

bool path_matches(std::string_view path, std::string_view pattern) {
  if (is_absolute(path) != is_absolute(pattern)) return false;
  // As in component_matches, a component at a time: only the last `**` is tried again.
  std::optional<std::string_view> retry_path;
  std::string_view retry_pattern;
  while (true) {
    std::string_view path_rest = path;
    std::string_view pattern_rest = pattern;
    const std::optional<std::string_view> component = take_component(path_rest);
    const std::optional<std::string_view> expected = take_component(pattern_rest);
    if (!component && !expected) return true;
    if (expected == "**") {
      pattern = pattern_rest;
      retry_path = path;
      retry_pattern = pattern;
      continue;
    }
    if (component && expected && component_matches(*component, *expected)) {
      path = path_rest;
      pattern = pattern_rest;
      continue;
    }
    if (!retry_path || !take_component(*retry_path)) return false;
    path = *retry_path;
    pattern = retry_pattern;
  }
}

}  // namespace veldra
