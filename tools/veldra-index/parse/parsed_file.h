#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/parse/chunker.h"
#include "veldra-index/tree/source_file.h"

namespace veldra::tool {

/// A definition that ctags found. The texts lie in the memory of its `ParsedFile`.
struct Symbol {
  static constexpr std::size_t NO_PARENT = static_cast<std::size_t>(-1);

  std::string_view name;
  std::string_view fqn;  // the scope's name and its own
  std::string_view kind;
  int start_line = 0;
  int end_line = 0;                // 0 when ctags knows none
  std::size_t parent = NO_PARENT;  // the enclosing symbol, a position in `ParsedFile::symbols`
};

/// A file or module that a file names as imported.
struct Import {
  std::string module;
  std::string name;  // what is taken from the module, where that may be a module itself
  int line = 0;
  bool system = false;  // <x.h>: not meant to lie beside the importing file
};

/// Everything that one index pass learns about one file.
///
/// Neither copied nor moved: symbols and chunks are views into its own texts.
struct ParsedFile {
  ParsedFile() = default;
  ParsedFile(const ParsedFile&) = delete;
  ParsedFile& operator=(const ParsedFile&) = delete;

  /// About how much memory it holds.
  std::size_t bytes() const;

  std::string path;
  SourceText source;
  std::string language{NO_LANGUAGE};
  std::int64_t lines = 0;
  bool same_content = false;  // as in the index: nothing was parsed, only the stamp is new
  std::vector<Symbol> symbols;
  std::vector<Import> imports;
  std::vector<Chunk> chunks;
  std::vector<FileProblem> problems;

  std::string tags;  // ctags' answer, where names and kinds lie
  std::string fqns;  // where the names with a scope lie
};

}  // namespace veldra::tool
