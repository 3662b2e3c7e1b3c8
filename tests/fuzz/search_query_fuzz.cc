// libFuzzer: whatever a user types, what is made of it is full-text syntax that SQLite takes.
#include <cstdlib>
#include <string>

#include "veldra-index/search/search_query.h"
#include "veldra/sqlite/connection.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static veldra::Connection index(":memory:");
  static const bool ready =
      (index.execute("CREATE VIRTUAL TABLE chunks USING fts5 (text)").close(), true);
  (void)ready;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (text.find('\0') != std::string_view::npos) return 0;  // no argument of a program has one
  const auto ask = [](const std::string& match) {
    if (!match.empty()) index.fetchall("SELECT rowid FROM chunks WHERE chunks MATCH ?", {match});
  };
  const std::vector<veldra::tool::SearchQuery::Word> words = veldra::tool::parse_search(text).words;
  ask(veldra::tool::match_of(words));
  ask(veldra::tool::narrowing_match(text));
  ask(veldra::tool::narrowing_match_of_regex(text));
  for (const auto& word : words) (void)veldra::tool::has_part(word.text, word.text);
  return 0;
}
