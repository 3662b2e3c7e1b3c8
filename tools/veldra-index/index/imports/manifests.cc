// The names of a tree's own packages.
#include "veldra-index/index/imports/manifests.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <sstream>

#include "veldra-index/index/imports/path_table.h"
#include "veldra-index/tree/path_text.h"
#include "veldra-index/tree/source_file.h"

namespace veldra::tool {
namespace {

constexpr std::array<std::string_view, 3> NAMES = {"go.mod", "package.json", "Cargo.toml"};

/// The first word behind `key` at the beginning of a line, from line `from` on.
std::string value_of(std::string_view text, std::string_view section, std::string_view key) {
  std::istringstream lines{std::string(text)};
  bool in_section = section.empty();
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('[')) in_section = section.empty() || line.starts_with(section);
    if (!in_section || !line.starts_with(key)) continue;
    const std::size_t begin = line.find_first_not_of(" \t=\"'", key.size());
    if (begin == key.size() || begin == std::string::npos) continue;
    return line.substr(begin, line.find_first_of(" \t\r\"'", begin) - begin);
  }
  return {};
}

}  // namespace

bool is_manifest(std::string_view path) {
  return is_ts_config(path) ||
         std::find(NAMES.begin(), NAMES.end(), file_name_of(path)) != NAMES.end();
}

void Manifests::add(std::string_view path, std::string_view text) {
  if (is_ts_config(path)) return ts_configs.add(path, text);
  const std::string folder(folder_of(path));
  const auto add_name = [&folder](auto& names, std::string name) {
    if (!name.empty()) names.emplace(std::move(name), folder);
  };
  if (file_name_of(path) == "go.mod") {
    add_name(go_modules, value_of(text, "", "module"));
  } else if (file_name_of(path) == "Cargo.toml") {
    std::string name = value_of(text, "[package]", "name");
    std::replace(name.begin(), name.end(), '-', '_');
    add_name(rust_crates, std::move(name));
  } else {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_object() && json.contains("name") && json["name"].is_string())
      add_name(node_packages, json["name"].get<std::string>());
  }
}

std::vector<std::string> Manifests::names_of(std::string_view path) const {
  std::vector<std::string> names = ts_configs.modules_of(path);
  const std::string_view file = file_name_of(path), folder = folder_of(path);
  const auto add_packages = [&](const auto& packages) {
    for (const auto& [name, root] : packages)
      if (folder == root || folder == joined(root, "src")) names.push_back(name);
  };
  if (file.starts_with("index.")) add_packages(node_packages);
  if (file == "lib.rs" || file == "main.rs") add_packages(rust_crates);
  return names;
}

Manifests read_manifests(const std::filesystem::path& root,
                         const std::vector<std::string_view>& paths) {
  Manifests manifests;
  for (const std::string_view path : paths) {
    if (!is_manifest(path)) continue;
    const SourceText source = read_source(root, {std::string(path), 0, 0});
    if (source.kind == SourceText::Kind::Text) manifests.add(path, source.text);
  }
  return manifests;
}

}  // namespace veldra::tool
