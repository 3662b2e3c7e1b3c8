// What the words of a search mean.
#include "veldra-index/search/search_query.h"

#include <algorithm>
#include <cctype>

namespace veldra::tool {
namespace {

bool is_blank(char byte) {
  return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}
bool is_lower(char byte) {
  return std::islower(static_cast<unsigned char>(byte)) != 0;
}
bool is_upper(char byte) {
  return std::isupper(static_cast<unsigned char>(byte)) != 0;
}
bool is_digit(char byte) {
  return std::isdigit(static_cast<unsigned char>(byte)) != 0;
}

bool is_word(std::string_view term) {
  return !term.empty() && std::all_of(term.begin(), term.end(), is_word_byte);
}

bool has_word(std::string_view term) {
  return std::any_of(term.begin(), term.end(), is_word_byte);
}

void add_match(SearchQuery& query, const std::string& term) {
  query.match += (query.match.empty() ? "" : " AND ") + term;
}

void add_term(SearchQuery& query, std::string_view term) {
  if (is_word(term)) {
    query.words.emplace_back(term);
    add_match(query, quote_term(term));
    return;
  }
  query.only_words = false;
  const std::string_view beginning = term.substr(0, term.size() - 1);
  if (term.ends_with('*') && is_word(beginning)) {
    add_match(query, quote_term(beginning) + "*");
    return;
  }
  query.literal.emplace_back(term);
  // The last word may go on: "foo->ba" is in "foo->bar".
  if (has_word(term)) add_match(query, quote_term(term) + (is_word_byte(term.back()) ? "*" : ""));
}

void add_phrase(SearchQuery& query, std::string_view phrase) {
  query.only_words = false;
  if (has_word(phrase)) {
    add_match(query, quote_term(phrase));
  } else if (!phrase.empty()) {
    query.literal.emplace_back(phrase);
  }
}

/// `name` in lower case without underscores; `begins` says where its parts begin, its end included.
struct Parts {
  explicit Parts(std::string_view name) {
    for (std::size_t at = 0; at < name.size(); ++at) {
      if (name[at] == '_') continue;
      const char before = at > 0 ? name[at - 1] : '_';
      const char after = at + 1 < name.size() ? name[at + 1] : '_';
      const bool hump = is_upper(name[at]) && (!is_upper(before) || is_lower(after));
      begins.push_back(before == '_' || hump || is_digit(name[at]) != is_digit(before));
      text += static_cast<char>(std::tolower(static_cast<unsigned char>(name[at])));
    }
    begins.push_back(true);
  }

  std::string text;
  std::vector<bool> begins;
};

void append_escaped(std::string& pattern, char byte) {
  if (byte == '%' || byte == '_' || byte == '\\') pattern += '\\';
  pattern += byte;
}

}  // namespace

bool is_word_byte(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x80 || std::isalnum(code) != 0 || byte == '_';
}

std::string quote_term(std::string_view term) {
  std::string quoted = "\"";
  for (const char byte : term) quoted.append(byte == '"' ? 2 : 1, byte);
  return quoted + "\"";
}

SearchQuery parse_search(std::string_view text) {
  SearchQuery query;
  const bool has_phrases = std::count(text.begin(), text.end(), '"') % 2 == 0;
  for (std::size_t at = 0; at < text.size();) {
    if (is_blank(text[at])) {
      ++at;
    } else if (has_phrases && text[at] == '"') {
      const std::size_t end = text.find('"', at + 1);
      add_phrase(query, text.substr(at + 1, end - at - 1));
      at = end + 1;
    } else {
      std::size_t end = at;
      while (end < text.size() && !is_blank(text[end]) && !(has_phrases && text[end] == '"')) ++end;
      add_term(query, text.substr(at, end - at));
      at = end;
    }
  }
  return query;
}

std::string like_pattern(std::string_view text) {
  std::string pattern = "%";
  for (const char byte : text) append_escaped(pattern, byte);
  return pattern + "%";
}

std::string part_pattern(std::string_view word) {
  const Parts parts(word);
  std::string pattern = "%";
  for (std::size_t at = 0; at < parts.text.size(); ++at) {
    if (at > 0 && parts.begins[at]) pattern += '%';
    append_escaped(pattern, parts.text[at]);
  }
  return pattern + "%";
}

bool has_part(std::string_view name, std::string_view word) {
  const Parts parts(name);
  const std::string wanted = Parts(word).text;
  if (wanted.empty()) return false;
  for (std::size_t at = parts.text.find(wanted); at != std::string::npos;
       at = parts.text.find(wanted, at + 1)) {
    if (parts.begins[at] && parts.begins[at + wanted.size()]) return true;
  }
  return false;
}

}  // namespace veldra::tool
