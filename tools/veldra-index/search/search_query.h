#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// What the text of a search asks for, unless it is said.
///
/// Words with blanks between them must all be there, in any order; a word and `*` is for what
/// begins so. A text with anything else in it (`foo->bar`, `C++`, `return "no";`) is meant as it
/// stands, with its blanks.
struct SearchQuery {
  struct Word {
    std::string text;
    bool begins = false;  // `*` stood behind it
  };

  std::vector<Word> words;  // none for a text as it stands
};

SearchQuery parse_search(std::string_view text);

/// What is between the quotes of a text that begins and ends with them and has no other; empty for
/// any other text.
std::string_view inside_quotes(std::string_view text);

/// The full-text expression for all of `words` in one piece of text.
std::string match_of(const std::vector<SearchQuery::Word>& words);

/// A full-text expression for all lines that hold `text`, and perhaps more; empty when there is
/// none: of a word whose beginning may be missing full-text search knows nothing.
std::string narrowing_match(std::string_view text);

/// The same for a regular expression: made of the texts that are in all that it matches.
std::string narrowing_match_of_regex(std::string_view expression);

/// A term as a full-text string (https://www.sqlite.org/fts5.html#fts5_strings).
std::string quote_term(std::string_view term);

/// A pattern for LIKE … ESCAPE '\' that every name matches of which `has_part(name, word)` holds.
std::string part_pattern(std::string_view word);

/// True when `name` is made of parts, told apart by underscores, capitals and digits, and `word` is
/// one or several of them in a row: "swap" is in swap_index_from and SwapIndexFrom, not in swapped.
bool has_part(std::string_view name, std::string_view word);

/// True for a letter, a digit, an underscore and every byte outside ASCII: what words are made of.
bool is_word_byte(char byte);

}  // namespace veldra::tool
