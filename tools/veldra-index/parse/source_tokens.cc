// Cutting a source text into words, texts and symbols.
#include "veldra-index/parse/source_tokens.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace veldra::tool {
namespace {

bool is_word_byte(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x80 || std::isalnum(code) != 0 || byte == '_' || byte == '$';
}

/// Of the first character of a text in UTF-8, in bytes.
std::size_t length_of_character(std::string_view text) {
  const unsigned lead = text.empty() ? 0 : static_cast<unsigned char>(text.front());
  return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

}  // namespace

Token SourceTokens::next() {
  for (;;) {
    if (_position >= _text.size()) return _last = Token{Token::Kind::End, {}, _line};
    const char byte = _text[_position];
    if (byte == '\n') {
      ++_position;
      ++_line;
      if (_rules.lines_matter && _depth == 0)
        return _last = Token{Token::Kind::LineEnd, {}, _line - 1};
    } else if (!_skip_blank_or_comment()) {
      break;
    }
  }
  const char byte = _text[_position];
  if (_rules.lifetimes && (_at("r\"") || _at("r#"))) {
    const std::size_t quote = _text.find_first_not_of('#', _position + 1);
    if (quote != std::string_view::npos && _text[quote] == '"') {
      const std::string end = "\"" + std::string(quote - _position - 1, '#');
      _position = quote + 1;
      return _last = _raw(end);
    }
  }
  if (is_word_byte(byte)) return _last = _word();
  if (byte == _rules.raw_quote && byte != '\0') {
    ++_position;
    return _last = _raw(std::string_view(&_rules.raw_quote, 1));
  }
  if (_rules.quotes.find(byte) != std::string_view::npos) return _last = _quoted(byte);
  if (byte == '/' && _rules.regexes && _is_regex()) return _last = _quoted('/');
  return _last = _symbol();
}

bool SourceTokens::_skip_blank_or_comment() {
  const char byte = _text[_position];
  if (byte == ' ' || byte == '\t' || byte == '\r' || byte == '\f')
    ++_position;
  else if (_at(_rules.line_comment))
    _position = std::min(_text.find('\n', _position), _text.size());
  else if (_rules.block_comments && _at("/*"))
    _skip_block();
  else if (_rules.lines_matter && (_at("\\\n") || _at("\\\r\n")))
    _skip_to("\n");
  else
    return false;
  return true;
}

/// Goes behind the next `end`, or to the end of the text.
void SourceTokens::_skip_to(std::string_view end) {
  const std::size_t at = std::min(_text.find(end, _position), _text.size());
  _line += static_cast<int>(std::count(_text.begin() + static_cast<std::ptrdiff_t>(_position),
                                       _text.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
  _position = std::min(at + end.size(), _text.size());
  if (end == "\n") ++_line;
}

void SourceTokens::_skip_block() {
  int open = 0;
  for (; _position < _text.size(); ++_position) {
    if (_at("*/")) {
      ++_position;
      if (--open <= 0 || !_rules.nested_comments) break;
    } else if (_at("/*")) {
      ++_position;
      ++open;
    } else if (_text[_position] == '\n') {
      ++_line;
    }
  }
  _position = std::min(_position + 1, _text.size());
}

Token SourceTokens::_word() {
  const std::size_t begin = _position;
  while (_position < _text.size() && is_word_byte(_text[_position])) ++_position;
  return _made(Token::Kind::Word, begin, _position);
}

/// A text that ends with its line, unless its quotes are three.
Token SourceTokens::_quoted(char quote) {
  const std::array<char, 3> three = {quote, quote, quote};
  const std::string_view triple(three.data(), three.size());
  if (_rules.triple_quotes && _at(triple)) {
    _position += triple.size();
    return _raw(triple);
  }
  if (quote == '\'' && _rules.lifetimes) {  // a character or a lifetime
    const std::string_view behind = _text.substr(_position + 1, 5);
    if (!behind.starts_with('\\') && behind.find('\'') != length_of_character(behind))
      return _symbol();
  }
  const std::size_t begin = ++_position;
  bool in_set = false;  // of a regular expression, where a slash does not end it
  for (; _position < _text.size() && _text[_position] != '\n'; ++_position) {
    const char byte = _text[_position];
    if (byte == '\\') {
      if (_position + 1 < _text.size() && _text[_position + 1] == '\n') ++_line;
      ++_position;
    } else if (quote == '/' && (byte == '[' || byte == ']')) {
      in_set = byte == '[';
    } else if (byte == quote && !in_set) {
      break;
    }
  }
  const std::size_t end = std::min(_position, _text.size());
  if (end < _text.size() && _text[end] == quote) ++_position;
  return _made(Token::Kind::Text, begin, end);
}

/// A text over lines, up to `end`.
Token SourceTokens::_raw(std::string_view end) {
  const std::size_t begin = _position;
  Token token{Token::Kind::Text, {}, _line};
  for (; _position < _text.size() && !_at(end); ++_position) {
    if (_text[_position] == '\\' && _rules.escapes_in_raw) ++_position;
    if (_position < _text.size() && _text[_position] == '\n') ++_line;
  }
  token.text = _text.substr(begin, std::min(_position, _text.size()) - begin);
  _position = std::min(_position + end.size(), _text.size());
  return token;
}

Token SourceTokens::_symbol() {
  const char byte = _text[_position++];
  if (byte == '(' || byte == '[' || byte == '{') ++_depth;
  if (byte == ')' || byte == ']' || byte == '}') _depth = std::max(0, _depth - 1);
  return _made(Token::Kind::Symbol, _position - 1, _position);
}

/// A slash divides behind a value, and begins a regular expression elsewhere.
bool SourceTokens::_is_regex() const {
  if (_last.kind == Token::Kind::Word)
    return _last.is("return") || _last.is("typeof") || _last.is("case") || _last.is("in");
  return _last.kind != Token::Kind::Text && !_last.is(')') && !_last.is(']') && !_last.is('}');
}

Token SourceTokens::_made(Token::Kind kind, std::size_t begin, std::size_t end) const {
  return {kind, _text.substr(begin, end - begin), _line};
}

}  // namespace veldra::tool
