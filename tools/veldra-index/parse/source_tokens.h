#pragma once

#include <cstddef>
#include <string_view>

namespace veldra::tool {

/// What a language writes comments and texts with.
struct TokenRules {
  std::string_view line_comment;  // "//" or "#"
  bool block_comments = false;    // /* … */, nested where `nested_comments`
  bool nested_comments = false;
  std::string_view quotes;      // the characters that begin a text on one line
  bool triple_quotes = false;   // """ … """, over lines
  char raw_quote = '\0';        // begins a text over lines: ` of Go and JavaScript
  bool escapes_in_raw = false;  // a backslash counts in a text over lines
  bool regexes = false;         // /…/ where a value may stand
  bool lifetimes = false;       // 'a is no text; r"…" and r#"…"# are
  bool lines_matter = false;    // an end of line outside brackets is a token
};

struct Token {
  enum class Kind { Word, Text, Symbol, LineEnd, End };

  Kind kind = Kind::End;
  std::string_view text;  // of a text what is between its quotes
  int line = 0;

  bool is(char symbol) const { return kind == Kind::Symbol && text.front() == symbol; }
  bool is(std::string_view word) const { return kind == Kind::Word && text == word; }
};

/// The words, texts and symbols of a source text, without its comments and blanks.
///
/// No parser: enough of a language to know where a statement is one. It never fails; what it takes
/// wrongly ends with the line or the file.
class SourceTokens {
 public:
  SourceTokens(std::string_view text, const TokenRules& rules) : _text(text), _rules(rules) {}

  /// The next one; `End` for ever at the end.
  Token next();

 private:
  bool _at(std::string_view word) const { return _text.substr(_position).starts_with(word); }
  bool _skip_blank_or_comment();
  void _skip_to(std::string_view end);
  void _skip_block();
  Token _word();
  Token _quoted(char quote);
  Token _raw(std::string_view end);
  Token _symbol();
  bool _is_regex() const;
  Token _made(Token::Kind kind, std::size_t begin, std::size_t end) const;

  std::string_view _text;
  const TokenRules& _rules;
  std::size_t _position = 0;
  int _line = 1;
  int _depth = 0;  // of brackets
  Token _last;
};

}  // namespace veldra::tool
