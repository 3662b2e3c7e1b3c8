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
  const veldra::tool::SearchQuery query = veldra::tool::parse_search(text);
  if (!query.match.empty())
    index.fetchall("SELECT rowid FROM chunks WHERE chunks MATCH ?", {query.match});
  for (const std::string& word : query.words) (void)veldra::tool::has_part(word, word);
  return 0;
}
