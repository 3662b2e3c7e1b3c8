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

/// Bytes that end a word for full-text search as well, whatever is around them.
bool is_separator(char byte) {
  return !is_word_byte(byte);
}

/// True where full-text search has a word, too: outside ASCII only it knows which bytes make one.
bool has_word(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char byte) {
    return is_word_byte(byte) && static_cast<unsigned char>(byte) < 0x80;
  });
}

/// Takes the last character away, of however many bytes.
void drop_last(std::string& text) {
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U)
    text.pop_back();
  if (!text.empty()) text.pop_back();
}

void add_match(std::string& all, const std::string& match) {
  if (!match.empty()) all += (all.empty() ? "" : " AND ") + match;
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
  for (std::size_t at = 0; at < text.size();) {
    if (is_blank(text[at])) {
      ++at;
      continue;
    }
    std::size_t end = at;
    while (end < text.size() && !is_blank(text[end])) ++end;
    std::string_view term = text.substr(at, end - at);
    const bool begins = term.size() > 1 && term.ends_with('*');
    if (begins) term.remove_suffix(1);
    if (!is_word(term)) return {};
    query.words.push_back({std::string(term), begins});
    at = end;
  }
  return query;
}

std::string_view inside_quotes(std::string_view text) {
  if (text.size() < 3 || text.front() != '"' || text.back() != '"') return {};
  const std::string_view inside = text.substr(1, text.size() - 2);
  return inside.find('"') == std::string_view::npos ? inside : std::string_view();
}

std::string match_of(const std::vector<SearchQuery::Word>& words) {
  std::string match;
  for (const auto& [text, begins] : words) add_match(match, quote_term(text) + (begins ? "*" : ""));
  return match;
}

std::string narrowing_match(std::string_view text) {
  const auto first = std::find_if(text.begin(), text.end(), is_separator);
  if (first == text.end()) return {};
  const std::string_view whole = text.substr(static_cast<std::size_t>(first - text.begin()));
  if (!has_word(whole)) return {};
  // The last word may go on: "foo->ba" is in "foo->bar".
  return quote_term(whole) + (is_word_byte(whole.back()) ? "*" : "");
}

std::string narrowing_match_of_regex(std::string_view expression) {
  // Where there is a choice, a group or a set, nothing is certain without reading the whole of it.
  static constexpr std::string_view UNREAD = "|([{";
  for (std::size_t at = 0; at < expression.size(); ++at)
    if (expression[at] == '\\')
      ++at;
    else if (UNREAD.find(expression[at]) != std::string_view::npos)
      return {};
  std::string match, run;
  const auto end_run = [&] {
    add_match(match, narrowing_match(run));
    run.clear();
  };
  for (std::size_t at = 0; at < expression.size(); ++at) {
    const char byte = expression[at];
    if (byte == '\\' && at + 1 < expression.size()) {
      const char escaped = expression[++at];
      if (!is_word_byte(escaped))
        run += escaped;
      else if (std::string_view("bBdDsSwW").find(escaped) != std::string_view::npos)
        end_run();
      else
        return {};
    } else if (byte == '*' || byte == '?' || byte == '+') {
      drop_last(run);
      end_run();
    } else if (byte == '.' || byte == '^' || byte == '$') {
      end_run();
    } else {
      run += byte;
    }
  }
  end_run();
  return match;
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
       at = parts.text.find(wanted, at + 1))
    if (parts.begins[at] && parts.begins[at + wanted.size()]) return true;
  return false;
}

}  // namespace veldra::tool
