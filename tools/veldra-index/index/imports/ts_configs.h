#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// What the tsconfig.json and jsconfig.json files of a tree say of the names of modules: "paths",
/// "baseUrl", and what they take from others by "extends"
/// (https://www.typescriptlang.org/tsconfig).
///
/// Thread safety: const members, from any thread.
class TsConfigs {
 public:
  /// Adds the file at `path`; one that is no JSON, but for comments and last commas, says nothing.
  void add(std::string_view path, std::string_view text);

  /// The files, their extension left out or not, that `module` may mean in `importer`, the best
  /// first. The nearest tsconfig.json or jsconfig.json from its folder upward decides, or where
  /// that has no paths, a project in the same folder that it references.
  std::vector<std::string> files_of(std::string_view importer, std::string_view module) const;

  /// The modules, without a wildcard, that may mean the file at `path`.
  std::vector<std::string> modules_of(std::string_view path) const;

 private:
  using Targets = std::vector<std::string>;
  struct Config {
    std::string folder;
    std::vector<std::string> extended, referenced;  // paths of others, ".json" left out or not
    std::optional<std::string> base;                // a folder
    std::map<std::string, Targets> paths;           // by module, as written
  };
  /// What holds of a file once those that it extends are taken in.
  struct Settings {
    const std::string* base = nullptr;
    const Config* with_paths = nullptr;

    std::string target(std::string_view path) const;
  };

  const Config* _find(const std::string& path) const;
  const Config* _nearest(std::string_view importer) const;
  Settings _settings(const Config& config) const;
  void _take_in(Settings& settings, const Config& config, int& left) const;

  std::map<std::string, Config, std::less<>> _configs;  // by path
};

/// True for a path that `TsConfigs` would read.
bool is_ts_config(std::string_view path);

}  // namespace veldra::tool
