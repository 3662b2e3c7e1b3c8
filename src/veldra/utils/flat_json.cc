// A strict reader and a writer for one flat JSON object of integers.
#include "veldra/utils/flat_json.h"

#include <charconv>
#include <system_error>

#include "veldra/utils/utf8.h"

namespace veldra {

namespace {

// The surrogate that stands for the byte 0 that is no UTF-8; only bytes from 0x80 on need it.
constexpr char32_t ESCAPED_BYTE = 0xdc00;

constexpr bool is_high_surrogate(char32_t point) {
  return point >= 0xd800 && point <= 0xdbff;
}

constexpr bool is_low_surrogate(char32_t point) {
  return point >= 0xdc00 && point <= 0xdfff;
}

constexpr bool is_escaped_byte(char32_t point) {
  return point >= ESCAPED_BYTE + 0x80 && point <= ESCAPED_BYTE + 0xff;
}

/// Appends the bytes of `point`; of a lone surrogate the three bytes that its value would have.
void append_utf8(std::string& text, char32_t point) {
  const auto byte = [&](char32_t bits) { text.push_back(static_cast<char>(bits)); };
  if (point < 0x80) {
    byte(point);
  } else if (point < 0x800) {
    byte(0xc0U | (point >> 6U));
    byte(0x80U | (point & 0x3fU));
  } else if (point < 0x10000) {
    byte(0xe0U | (point >> 12U));
    byte(0x80U | ((point >> 6U) & 0x3fU));
    byte(0x80U | (point & 0x3fU));
  } else {
    byte(0xf0U | (point >> 18U));
    byte(0x80U | ((point >> 12U) & 0x3fU));
    byte(0x80U | ((point >> 6U) & 0x3fU));
    byte(0x80U | (point & 0x3fU));
  }
}

/// Reads from the front of a text. Every member answers false or none where the text is not what
/// it should be; the reader is of no use after that.
class Reader {
 public:
  explicit Reader(std::string_view text) : _rest(text) {}

  bool at_end() const { return _rest.empty(); }

  void skip_space() {
    while (!_rest.empty() &&
           std::string_view(" \t\n\r").find(_rest.front()) != std::string_view::npos)
      _rest.remove_prefix(1);
  }

  bool take(char expected) {
    if (!_rest.starts_with(expected)) return false;
    _rest.remove_prefix(1);
    return true;
  }

  std::optional<std::int64_t> take_integer() {
    const std::size_t sign = _rest.starts_with('-') ? 1 : 0;
    const std::size_t digits = _rest.find_first_not_of("0123456789", sign);
    const std::string_view number = _rest.substr(0, digits);
    const bool leading_zero = number.size() > sign + 1 && number[sign] == '0';
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error != std::errc() || leading_zero) return std::nullopt;
    _rest.remove_prefix(number.size());
    return value;
  }

  std::optional<std::string> take_string() {
    if (!take('"')) return std::nullopt;
    std::string text;
    while (!_rest.empty()) {
      if (take('"')) return text;
      if (!(_rest.front() == '\\' ? _take_escape(text) : _take_plain(text))) return std::nullopt;
    }
    return std::nullopt;
  }

 private:
  bool _take_plain(std::string& text) {
    const auto [point, valid] = take_character(_rest);
    if (!valid || point < 0x20) return false;
    append_utf8(text, point);
    return true;
  }

  bool _take_escape(std::string& text) {
    static constexpr std::string_view LETTERS = "\"\\/bfnrt";
    static constexpr std::string_view MEANINGS = "\"\\/\b\f\n\r\t";
    if (_rest.starts_with("\\u")) return _take_code_point(text);
    const std::size_t letter = _rest.size() < 2 ? LETTERS.npos : LETTERS.find(_rest[1]);
    if (letter == LETTERS.npos) return false;
    text.push_back(MEANINGS[letter]);
    _rest.remove_prefix(2);
    return true;
  }

  bool _take_code_point(std::string& text) {
    const std::optional<char32_t> point = _take_code_unit();
    if (!point) return false;
    if (is_high_surrogate(*point)) {
      const std::string_view behind = _rest;
      const std::optional<char32_t> low = _take_code_unit();
      if (low && is_low_surrogate(*low)) {
        append_utf8(text, 0x10000 + ((*point - 0xd800) << 10U) + (*low - 0xdc00));
        return true;
      }
      _rest = behind;  // a lone one; what follows it is read on its own
    }
    if (is_escaped_byte(*point))
      text.push_back(static_cast<char>(*point - ESCAPED_BYTE));
    else
      append_utf8(text, *point);
    return true;
  }

  std::optional<char32_t> _take_code_unit() {
    static constexpr std::size_t LENGTH = std::string_view("\\uNNNN").size();
    if (!_rest.starts_with("\\u") || _rest.size() < LENGTH) return std::nullopt;
    std::uint16_t unit = 0;
    const char* end = _rest.data() + LENGTH;
    const auto [stopped, error] = std::from_chars(_rest.data() + 2, end, unit, 16);
    if (error != std::errc() || stopped != end) return std::nullopt;
    _rest.remove_prefix(LENGTH);
    return unit;
  }

  std::string_view _rest;
};

void append_code_unit(std::string& text, char32_t unit) {
  static constexpr std::string_view HEXADECIMAL = "0123456789abcdef";
  text.append("\\u");
  for (const unsigned shift : {12U, 8U, 4U, 0U})
    text.push_back(HEXADECIMAL[(unit >> shift) & 0xfU]);
}

void append_character(std::string& text, const Utf8Character& character) {
  static constexpr std::string_view ESCAPED = "\"\\\b\f\n\r\t";
  static constexpr std::string_view LETTERS = "\"\\bfnrt";
  const auto [point, valid] = character;
  const std::size_t letter =
      point < 0x80 ? ESCAPED.find(static_cast<char>(point)) : std::string_view::npos;
  if (!valid) {
    append_code_unit(text, ESCAPED_BYTE + point);
  } else if (point >= 0x10000) {
    append_code_unit(text, 0xd800 + ((point - 0x10000) >> 10U));
    append_code_unit(text, 0xdc00 + ((point - 0x10000) & 0x3ffU));
  } else if (letter != std::string_view::npos) {
    text.append({'\\', LETTERS[letter]});
  } else if (point < 0x20 || point >= 0x7f) {
    append_code_unit(text, point);
  } else {
    text.push_back(static_cast<char>(point));
  }
}

}  // namespace

std::optional<std::map<std::string, std::int64_t>> parse_flat_json(std::string_view text) {
  Reader reader(text);
  std::map<std::string, std::int64_t> members;
  reader.skip_space();
  if (!reader.take('{')) return std::nullopt;
  reader.skip_space();
  bool closed = reader.take('}');
  while (!closed) {
    reader.skip_space();
    std::optional<std::string> name = reader.take_string();
    reader.skip_space();
    if (!name || !reader.take(':')) return std::nullopt;
    reader.skip_space();
    const std::optional<std::int64_t> value = reader.take_integer();
    reader.skip_space();
    closed = reader.take('}');
    // A fraction or an exponent behind the digits ends here: neither a comma nor the closing brace.
    if (!value || (!closed && !reader.take(','))) return std::nullopt;
    members.insert_or_assign(*std::move(name), *value);
  }
  reader.skip_space();
  return reader.at_end() ? std::optional(std::move(members)) : std::nullopt;
}

std::string format_flat_json(const std::map<std::string, std::int64_t>& members) {
  std::string text = "{";
  for (const auto& [name, value] : members) {
    text.append(text.size() > 1 ? ", \"" : "\"");
    for (std::string_view rest = name; !rest.empty();) append_character(text, take_character(rest));
    text.append("\": ").append(std::to_string(value));
  }
  return text.append("}");
}

}  // namespace veldra
