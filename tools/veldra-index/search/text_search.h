#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "veldra-index/index/read_index.h"
#include "veldra-index/search/hit_lines.h"
#include "veldra-index/search/line_pattern.h"
#include "veldra-index/search/search_query.h"
#include "veldra-index/search/text_scan.h"

namespace veldra::tool {

struct SearchOptions {
  enum class Syntax { Plain, Fixed, Regex, FullText };

  std::string text;
  Syntax syntax = Syntax::Plain;
  bool case_counts = false;
  bool whole_words = false;
  std::optional<std::string> path;      // a pattern
  std::string below;                    // a folder or file; empty for all
  std::optional<std::string> language;  // as `files.language` has it, letter case ignored
  std::int64_t limit = 20;              // lines at most
  std::int64_t context = 1;             // lines around a hit
  bool counts_files = false;            // only `Findings::files`, of all lines
  int threads = 1;
};

/// A line in which something was found, and the lines around it.
struct Hit {
  std::string file;
  MarkedLine line;
  std::vector<MarkedLine> before, after;
};

struct Findings {
  std::vector<Hit> hits;
  std::int64_t lines = 0;  // with hits, shown or not
  bool all_counted = true;
  std::vector<std::pair<std::string, std::int64_t>> files;  // lines of each, in the order of hits
};

/// One search through the texts of the files.
///
///     Findings found = TextSearch(index, options).run();
///
/// It goes in steps, until there are more lines than are wanted: what a later one finds comes
/// after.
///
/// 1. Where the word that is looked for is defined.
/// 2. What full-text search finds: whole words, all in one piece of a file; for a text as it stands
///    the pieces that have its words. Best first.
/// 3. Several words in one file, though not in one piece of it.
/// 4. All of the stored text, for what is inside words: parts of names first.
///
/// In each step the files that people write come before generated and foreign ones.
class TextSearch {
 public:
  TextSearch(ReadIndex& index, const SearchOptions& options);

  /// Throws `Error` for raw full-text syntax that is wrong, `Failure` for a wrong expression.
  Findings run();

 private:
  struct File {
    std::string path;
    bool secondary;  // generated or foreign
  };

  void _search_words();
  void _search_text(const std::string& text);
  void _add_definitions(const std::string& name);
  void _add_matches_or_scan(const std::string& match);
  void _add_matches(const std::string& match);
  std::optional<std::int64_t> _add_ranked(const std::string& match, const std::string& text);
  void _add_files_with_all();
  void _add_pieces(const std::string& text, const std::string& condition, Params parameters,
                   const std::string& order);
  void _hold(std::string& query, Params& parameters) const;
  void _scan();

  bool _add_piece(const Row& piece);
  std::vector<HitLine> _lines_found(std::string_view text, std::int64_t first_line) const;
  void _count_line(std::int64_t file, const std::string& path);
  std::vector<Hit>& _place_of(const HitLine& line, const File& file);
  Hit _hit(const File& file, std::int64_t piece, const std::vector<MarkedLine>& lines,
           std::size_t at) const;
  void _add_neighbours(Hit& hit, std::int64_t piece) const;
  const File* _file_of(std::int64_t id);
  void _end_step();
  bool _enough() const { return !_options.counts_files && _found.lines > _options.limit; }

  ReadIndex& _index;
  const SearchOptions& _options;
  std::string _files_wanted;  // a query for their ids; empty for all
  Params _files_parameters;
  std::vector<SearchQuery::Word> _words;

  // What this step looks for.
  std::vector<LinePattern> _patterns;      // none for full-text syntax, whose hits are marked
  std::optional<std::int64_t> _only_line;  // of the piece
  bool _parts_first = false;               // of names, before what is only inside of words
  std::vector<Hit> _later, _last;          // hits for the step's end; the last are secondary files

  std::unordered_map<std::int64_t, File> _files;
  std::unordered_map<std::int64_t, std::unordered_set<std::int64_t>> _seen;  // lines of files
  std::unordered_map<std::int64_t, std::size_t> _counted;  // file -> position in `_found.files`
  Findings _found;
};

/// True for what a program has written or somebody else has: found in a folder such as vendor or
/// node_modules, minified, a lock file, generated code.
bool is_secondary(std::string_view path);

}  // namespace veldra::tool
