// A scanner for flat JSON objects, one per line.
#include "veldra-index/parse/tag_reader.h"

#include <charconv>
#include <cstdint>

#include "veldra-index/tree/encoding.h"

namespace veldra::tool {
namespace {

class Scanner {
 public:
  explicit Scanner(std::span<char> text) : _at(text.data()), _end(text.data() + text.size()) {}

  bool at(char expected) {
    _skip_blanks();
    return _at != _end && *_at == expected;
  }

  bool at_end() {
    _skip_blanks();
    return _at == _end;
  }

  bool skip(char expected) {
    if (!at(expected)) return false;
    ++_at;
    return true;
  }

  bool text(std::string_view& text) {
    if (!skip('"')) return false;
    char* const begin = _at;
    while (_at != _end && *_at != '"' && *_at != '\\') ++_at;
    char* written = _at;
    while (_at != _end && *_at != '"')
      if (*_at != '\\')
        *written++ = *_at++;
      else if (!_escape(written))
        return false;
    if (_at == _end) return false;
    ++_at;
    text = std::string_view(begin, static_cast<std::size_t>(written - begin));
    return true;
  }

  /// A number, or 0 for true, false, null and what no int holds.
  bool number(int& number) {
    _skip_blanks();
    char* const begin = _at;
    while (_at != _end && *_at != ',' && *_at != '}') ++_at;
    const std::string_view word(begin, static_cast<std::size_t>(_at - begin));
    number = 0;
    if (word == "true" || word == "false" || word == "null") return true;
    return std::from_chars(begin, _at, number).ptr != begin;
  }

 private:
  void _skip_blanks() {
    while (_at != _end && (*_at == ' ' || *_at == '\t' || *_at == '\r')) ++_at;
  }

  bool _escape(char*& written) {
    if (_end - _at < 2) return false;
    const char kind = _at[1];
    _at += 2;
    switch (kind) {
      case 'b':
        *written++ = '\b';
        return true;
      case 'f':
        *written++ = '\f';
        return true;
      case 'n':
        *written++ = '\n';
        return true;
      case 'r':
        *written++ = '\r';
        return true;
      case 't':
        *written++ = '\t';
        return true;
      case '"':
      case '\\':
      case '/':
        *written++ = kind;
        return true;
      case 'u':
        return _code_point(written);
      default:
        return false;
    }
  }

  bool _hex(char32_t& code) {
    if (_end - _at < 4) return false;
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(_at, _at + 4, value, 16);
    if (error != std::errc() || end != _at + 4) return false;
    _at += 4;
    code = value;
    return true;
  }

  /// Behind "\u". UTF-8 of any code point is shorter than its escape, so writing in place is safe.
  bool _code_point(char*& written) {
    char32_t code = 0;
    if (!_hex(code)) return false;
    if (code >= 0xD800 && code < 0xDC00) {
      char32_t low = 0;
      if (_end - _at < 2 || _at[0] != '\\' || _at[1] != 'u') return false;
      _at += 2;
      if (!_hex(low) || low < 0xDC00 || low > 0xDFFF) return false;
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    } else if (code >= 0xDC00 && code < 0xE000) {
      return false;
    }
    written += encode_utf8(code, written);
    return true;
  }

  char* _at;
  char* const _end;
};

std::string_view* text_member(TagLine& tag, std::string_view key) {
  if (key == "name") return &tag.name;
  if (key == "language") return &tag.language;
  if (key == "kind") return &tag.kind;
  if (key == "scope") return &tag.scope;
  if (key == "scopeKind") return &tag.scope_kind;
  if (key == "roles") return &tag.roles;
  if (key == "_type") return &tag.type;
  if (key == "message") return &tag.message;
  return nullptr;
}

int* number_member(TagLine& tag, std::string_view key) {
  if (key == "line") return &tag.line;
  if (key == "end") return &tag.end;
  return nullptr;
}

}  // namespace

bool read_tag_line(std::span<char> line, TagLine& tag) {
  tag = {};
  Scanner scanner(line);
  if (!scanner.skip('{')) return false;
  if (scanner.skip('}')) return scanner.at_end();
  do {
    std::string_view key;
    std::string_view unused_text;
    int unused_number = 0;
    if (!scanner.text(key) || !scanner.skip(':')) return false;
    if (scanner.at('"')) {
      std::string_view* const member = text_member(tag, key);
      if (!scanner.text(member != nullptr ? *member : unused_text)) return false;
    } else {
      int* const member = number_member(tag, key);
      if (!scanner.number(member != nullptr ? *member : unused_number)) return false;
    }
  } while (scanner.skip(','));
  return scanner.skip('}') && scanner.at_end();
}

}  // namespace veldra::tool
