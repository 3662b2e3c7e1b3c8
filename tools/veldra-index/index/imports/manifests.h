#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/index/imports/ts_configs.h"

namespace veldra::tool {

/// The names under which the packages of a tree are imported, as their manifests say: go.mod,
/// package.json, Cargo.toml, each with the folder of the manifest; and what a tsconfig.json says.
struct Manifests {
  std::map<std::string, std::string, std::less<>> go_modules;
  std::map<std::string, std::string, std::less<>> node_packages;
  std::map<std::string, std::string, std::less<>> rust_crates;
  TsConfigs ts_configs;

  /// Adds what the manifest at `path` says; one that cannot be read says nothing.
  void add(std::string_view path, std::string_view text);

  /// The names, of packages and by a tsconfig.json, under which the file at `path` may be imported
  /// though nothing in it is called so.
  std::vector<std::string> names_of(std::string_view path) const;
};

/// True for a path that `Manifests` would read.
bool is_manifest(std::string_view path);

/// Reads those of `paths`, which are relative to `root`.
Manifests read_manifests(const std::filesystem::path& root,
                         const std::vector<std::string_view>& paths);

}  // namespace veldra::tool
