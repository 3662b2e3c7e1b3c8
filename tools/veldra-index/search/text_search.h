#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "veldra-index/search/hit_lines.h"
#include "veldra/storage/snapshot.h"

namespace veldra::tool {

struct SearchOptions {
  std::string text;
  bool fts = false;                 // `text` is raw full-text syntax
  std::optional<std::string> path;  // a pattern
  std::int64_t limit = 20;          // lines at most
  std::int64_t context = 1;         // lines around a hit
};

/// A line in which something was found, and the lines around it.
struct Hit {
  std::string file;
  MarkedLine line;
  std::vector<MarkedLine> before, after;
};

/// One search through the texts of the files.
///
///     std::vector<Hit> hits = TextSearch(index, options).run();
///
/// Best first: what was asked for, as whole words; then the names in the index of which a word is a
/// part; then words that begin with one as a part. At most `options.limit` lines.
class TextSearch {
 public:
  TextSearch(Snapshot& index, const SearchOptions& options) : _index(index), _options(options) {}

  /// Throws `Error` for raw full-text syntax that is wrong.
  std::vector<Hit> run();

 private:
  struct Conditions {
    std::string text;
    Params parameters;
  };
  /// Which of the marked hits count.
  struct Wanted {
    std::vector<std::string> literal;  // if any: nothing but these, as they stand
    std::vector<std::string> parts;    // if any: only words that have one as a part
  };

  bool _full() const { return _hits.size() >= static_cast<std::size_t>(_options.limit); }
  std::string _match_of_names(const std::vector<std::string>& words) const;
  void _add_matches(const std::string& match, const Wanted& wanted);
  void _scan(const std::vector<std::string>& literal);
  void _hold(Conditions& conditions, const std::vector<std::string>& literal) const;
  void _add(const std::string& text, Conditions conditions, const std::string& order,
            const Wanted& wanted);
  void _add_chunk(const Row& row, const Wanted& wanted);
  void _add_neighbours(std::int64_t chunk, std::vector<MarkedLine>& lines) const;

  Snapshot& _index;
  const SearchOptions& _options;
  std::set<std::pair<std::string, std::int64_t>> _seen;  // lines of files
  std::vector<Hit> _hits;
};

}  // namespace veldra::tool
