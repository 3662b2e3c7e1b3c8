#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veldra-index/index/read_index.h"

namespace veldra::tool {

struct SymbolsOptions {
  std::string name;  // qualified or not, or a pattern with * and ?
  std::optional<std::string> kind;
  std::optional<std::string> path;  // a pattern
  std::string below;                // a folder or file; empty for all
  std::int64_t limit = 50;
};

/// A definition that was found.
struct FoundSymbol {
  std::string name, fqn, kind, file;
  std::optional<std::int64_t> line, end_line;
  bool exact;  // of the very name, or of one that the pattern matches
};

/// One search for definitions by their name.
///
///     std::vector<FoundSymbol> found = SymbolSearch(index, options).run();
///
/// Those of exactly the name come first, then those that have it as a part.
class SymbolSearch {
 public:
  SymbolSearch(ReadIndex& index, const SymbolsOptions& options)
      : _index(index), _options(options) {}

  std::vector<FoundSymbol> run();

 private:
  std::size_t _left() const { return static_cast<std::size_t>(_options.limit) - _found.size(); }
  void _add(const std::string& condition, Params parameters, bool exact);

  ReadIndex& _index;
  const SymbolsOptions& _options;
  std::vector<FoundSymbol> _found;
};

/// The part of a qualified name behind its last separator, "::" or a dot.
std::string_view last_name(std::string_view name);

}  // namespace veldra::tool
