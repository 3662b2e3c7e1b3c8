#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// What the text of a search asks for.
///
/// Blanks separate terms, all of which must be there. A term is a word; a word and `*`, for what
/// begins so; text in double quotes, for its words one after the other; or text with punctuation
/// (`foo->bar`, `C++`), which must be there as it stands. A quote that is never closed is
/// punctuation as well. Letter case does not count.
struct SearchQuery {
  std::string match;                 // the full-text expression; empty when there is no word in it
  std::vector<std::string> literal;  // texts that must be there as they stand
  std::vector<std::string> words;    // terms that are one whole word
  bool only_words = true;            // every term is one
};

SearchQuery parse_search(std::string_view text);

/// A term as a full-text string (https://www.sqlite.org/fts5.html#fts5_strings).
std::string quote_term(std::string_view term);

/// A pattern for LIKE … ESCAPE '\' that matches texts which hold `text`.
std::string like_pattern(std::string_view text);

/// A pattern for LIKE … ESCAPE '\' that every name matches of which `has_part(name, word)` holds.
std::string part_pattern(std::string_view word);

/// True when `name` is made of parts, told apart by underscores, capitals and digits, and `word` is
/// one or several of them in a row: "swap" is in swap_index_from and SwapIndexFrom, not in swapped.
bool has_part(std::string_view name, std::string_view word);

/// True for a letter, a digit, an underscore and every byte outside ASCII: what words are made of.
bool is_word_byte(char byte);

}  // namespace veldra::tool
