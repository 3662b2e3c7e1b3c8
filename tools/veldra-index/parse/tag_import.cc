// From the tags of a file to its symbols and imports.
#include "veldra-index/parse/tag_import.h"

#include <algorithm>
#include <array>
#include <set>
#include <span>
#include <unordered_map>

#include "veldra-index/parse/tag_reader.h"
#include "veldra/storage/database.h"

namespace veldra::tool {
namespace {

/// The roles, over all languages, in which ctags reports what a file imports.
constexpr std::array<std::string_view, 17> IMPORT_ROLES = {
    "copied",      "extFile",   "import",    "imported", "included", "indirectlyImported",
    "loaded",      "local",     "namespace", "optional", "require",  "required",
    "requiredRel", "sincluded", "source",    "system",   "used"};
/// Kinds of tags that are imported but name no file or module: `x` in "from m import x".
constexpr std::string_view UNKNOWN_KIND = "unknown";
constexpr std::string_view FILE_KIND = "file";

constexpr std::array<std::string_view, 10> LANGUAGES_WITH_COLONS = {
    "C", "C++", "CUDA", "D", "ObjectiveC", "Perl", "PHP", "Protobuf", "Ruby", "Rust"};

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// `roles` is one role or several with commas between.
bool is_import(std::string_view roles) {
  while (!roles.empty()) {
    const std::size_t comma = std::min(roles.find(','), roles.size());
    if (contains(IMPORT_ROLES, roles.substr(0, comma))) return true;
    roles.remove_prefix(std::min(comma + 1, roles.size()));
  }
  return false;
}

/// Reads the tags of one file into it.
class TagImport {
 public:
  explicit TagImport(ParsedFile& file) : _file(file) {
    const auto lines =
        static_cast<std::size_t>(std::count(file.tags.begin(), file.tags.end(), '\n'));
    file.symbols.reserve(lines);
    _scopes.reserve(lines);
  }

  void run() {
    for (std::size_t begin = 0; begin < _file.tags.size();) {
      const std::size_t end = std::min(_file.tags.find('\n', begin), _file.tags.size());
      _read_line(std::span(_file.tags).subspan(begin, end - begin));
      begin = end + 1;
    }
    _name_symbols();
    _find_parents();
  }

 private:
  void _read_line(std::span<char> line) {
    TagLine tag;
    if (!read_tag_line(line, tag))
      _problem(PARTIAL_PARSE_ERROR, "ctags gave a line that is no tag", {});
    else if (tag.type == "error")
      _problem(PARTIAL_PARSE_ERROR, "ctags: " + std::string(tag.message), {});
    else if (tag.type == "tag")
      _add(tag);
  }

  void _add(const TagLine& tag) {
    if (tag.kind == FILE_KIND) {
      _file.language = tag.language;
    } else if (tag.roles == "def") {
      _file.symbols.push_back({tag.name, tag.name, tag.kind, tag.line, tag.end, Symbol::NO_PARENT});
      _scopes.push_back({tag.scope, tag.scope_kind});
    } else if (tag.kind != UNKNOWN_KIND && !tag.name.empty() && is_import(tag.roles)) {
      _file.imports.push_back({std::string(tag.name), {}, tag.line, tag.roles == "system"});
    }
  }

  void _name_symbols() {
    const std::string_view separator = contains(LANGUAGES_WITH_COLONS, _file.language) ? "::" : ".";
    std::size_t length = 0;
    for (std::size_t at = 0; at < _scopes.size(); ++at)
      if (!_scopes[at].name.empty())
        length += _scopes[at].name.size() + separator.size() + _file.symbols[at].name.size();
    _file.fqns.reserve(length);  // a text that grew would leave views behind
    for (std::size_t at = 0; at < _scopes.size(); ++at) {
      if (_scopes[at].name.empty()) continue;
      const std::size_t begin = _file.fqns.size();
      _file.fqns.append(_scopes[at].name).append(separator).append(_file.symbols[at].name);
      _file.symbols[at].fqn = std::string_view(_file.fqns).substr(begin);
    }
  }

  void _find_parents() {
    std::unordered_map<std::string_view, std::vector<std::size_t>>
        named;  // scope -> who has its name
    for (const Scope& scope : _scopes)
      if (!scope.name.empty()) named.try_emplace(scope.name);
    if (named.empty()) return;
    for (std::size_t at = 0; at < _file.symbols.size(); ++at)
      if (const auto found = named.find(_file.symbols[at].fqn); found != named.end())
        found->second.push_back(at);
    for (auto& [name, symbols] : named) {
      std::stable_sort(symbols.begin(), symbols.end(), [this](std::size_t left, std::size_t right) {
        return _file.symbols[left].start_line < _file.symbols[right].start_line;
      });
    }
    for (std::size_t at = 0; at < _file.symbols.size(); ++at) {
      if (_scopes[at].name.empty()) continue;
      _file.symbols[at].parent = _parent_of(at, named.find(_scopes[at].name)->second);
    }
  }

  /// `candidates` have the name of the symbol's scope, in the order of their lines.
  std::size_t _parent_of(std::size_t at, const std::vector<std::size_t>& candidates) {
    const Symbol& symbol = _file.symbols[at];
    const auto is_of_kind = [&](std::size_t candidate) {
      return _file.symbols[candidate].kind == _scopes[at].kind;
    };
    const auto behind = std::upper_bound(candidates.begin(), candidates.end(), symbol.start_line,
                                         [this](int line, std::size_t candidate) {
                                           return line < _file.symbols[candidate].start_line;
                                         });
    std::size_t around = Symbol::NO_PARENT;
    // The one around is the last before it or close to that: few share one line.
    const auto last = behind - std::min<std::ptrdiff_t>(behind - candidates.begin(), 8);
    for (auto candidate = behind; candidate != last;) {
      if (symbol.start_line > _file.symbols[*--candidate].end_line) continue;
      if (is_of_kind(*candidate)) return *candidate;
      if (around == Symbol::NO_PARENT) around = *candidate;
    }
    if (around != Symbol::NO_PARENT) return around;
    if (candidates.empty()) return Symbol::NO_PARENT;

    const auto first = std::find_if(candidates.begin(), candidates.end(), is_of_kind);
    if (first == candidates.end()) return candidates.front();
    if (std::find_if(first + 1, candidates.end(), is_of_kind) == candidates.end()) return *first;
    const std::size_t guess = behind == candidates.begin() ? *first : *(behind - 1);
    // Where ctags tells no ends, what a symbol is in began last before it.
    const bool is_certain = behind != candidates.begin() && _file.symbols[guess].end_line == 0;
    if (!is_certain && _collisions.insert(_scopes[at].name).second) {
      _problem(FQN_COLLISION_ERROR,
               "several definitions of " + std::string(_scopes[at].name) +
                   "; which of them encloses " + std::string(symbol.name) + " is a guess",
               symbol.start_line);
    }
    return guess;
  }

  void _problem(std::string_view type, std::string message, std::optional<std::int64_t> line) {
    _file.problems.push_back({std::string(type), std::move(message), line});
  }

  struct Scope {
    std::string_view name;
    std::string_view kind;
  };

  ParsedFile& _file;
  std::vector<Scope> _scopes;  // of the symbols, by position
  std::set<std::string_view> _collisions;
};

}  // namespace

void read_tags(ParsedFile& file) {
  TagImport(file).run();
}

}  // namespace veldra::tool
