#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "veldra-index/search/symbol_search.h"
#include "veldra-index/search/text_search.h"

namespace veldra::tool {

/// What every command is told.
struct Options {
  std::filesystem::path directory = ".";
  std::optional<std::filesystem::path> db;
  bool json = false;
  bool color = false;
  bool quiet = false;
  int jobs = 1;  // threads that parse
};

/// The commands, each in the file of its name. They print to standard output, return the exit
/// status and throw `Failure`, `Interrupted` and the layer's errors.
int rebuild(const Options& options);
int update(const Options& options);
int stats(const Options& options);
int search(const Options& options, const SearchOptions& query);
int symbols(const Options& options, const SymbolsOptions& query);
int refs(const Options& options, const std::string& name);
int health(const Options& options);
int errors(const Options& options, const std::optional<std::string>& file);
int check(const Options& options);
int compact(const Options& options);
int clear(const Options& options);
int sql(const Options& options, const std::string& query);

}  // namespace veldra::tool
