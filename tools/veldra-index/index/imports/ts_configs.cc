// Names of modules that a project gives itself.
#include "veldra-index/index/imports/ts_configs.h"

#include <re2/re2.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "veldra-index/index/imports/path_table.h"
#include "veldra-index/tree/path_text.h"

namespace veldra::tool {
namespace {

using Json = nlohmann::json;

/// How many files one may take in by "extends", themselves included; a circle ends there, too.
constexpr int MOST_TAKEN_IN = 32;

/// JSON as TypeScript reads it: with comments, and a comma behind the last of a list.
Json parse(std::string text) {
  static const RE2 LAST_COMMA(R"(,((?:\s|//[^\n]*\n|(?s:/\*.*?\*/))*[}\]]))");
  RE2::GlobalReplace(&text, LAST_COMMA, "\\1");
  return Json::parse(text, nullptr, /*allow_exceptions=*/false, /*ignore_comments=*/true);
}

/// The member of an object, null where there is none.
const Json& member(const Json& object, const char* name) {
  static const Json NONE;
  return object.is_object() && object.contains(name) ? object[name] : NONE;
}

/// A text, or the texts of a list.
std::vector<std::string> texts_of(const Json& value) {
  std::vector<std::string> texts;
  for (const Json& text : value.is_array() ? value : Json::array({value}))
    if (text.is_string()) texts.push_back(text.get<std::string>());
  return texts;
}

std::string_view without_extension(std::string_view path) {
  return path.substr(0, path.size() - extension_of(path).size());
}

/// What the wildcard of `pattern` stands for in `module`; none where they differ.
std::optional<std::string> wildcard_of(std::string_view pattern, std::string_view module) {
  const std::size_t star = pattern.find('*');
  if (star == std::string_view::npos)
    return pattern == module ? std::optional<std::string>("") : std::nullopt;
  const std::string_view begin = pattern.substr(0, star), end = pattern.substr(star + 1);
  if (module.size() < begin.size() + end.size() || !module.starts_with(begin) ||
      !module.ends_with(end))
    return std::nullopt;
  return std::string(module.substr(star, module.size() - begin.size() - end.size()));
}

}  // namespace

bool is_ts_config(std::string_view path) {
  const std::string_view name = file_name_of(path);
  return name.ends_with(".json") && (name.starts_with("tsconfig") || name.starts_with("jsconfig"));
}

void TsConfigs::add(std::string_view path, std::string_view text) {
  const Json json = parse(std::string(text));
  if (!json.is_object()) return;
  Config config;
  config.folder = folder_of(path);
  for (const std::string& other : texts_of(member(json, "extends")))
    if (other.starts_with('.')) config.extended.push_back(joined(config.folder, other));
  for (const Json& project : member(json, "references"))
    for (const std::string& other : texts_of(member(project, "path")))
      config.referenced.push_back(joined(config.folder, other));
  const Json& options = member(json, "compilerOptions");
  if (const Json& base = member(options, "baseUrl"); base.is_string())
    config.base = joined(config.folder, base.get<std::string>());
  for (const auto& [pattern, targets] : member(options, "paths").items())
    config.paths.emplace(pattern, texts_of(targets));
  _configs.emplace(path, std::move(config));
}

const TsConfigs::Config* TsConfigs::_find(const std::string& path) const {
  for (const std::string& name : {path, path + ".json"})
    if (const auto found = _configs.find(name); found != _configs.end()) return &found->second;
  return nullptr;
}

const TsConfigs::Config* TsConfigs::_nearest(std::string_view importer) const {
  for (std::string_view folder = folder_of(importer);; folder = folder_of(folder)) {
    for (const char* const name : {"tsconfig.json", "jsconfig.json"})
      if (const auto found = _configs.find(joined(folder, name)); found != _configs.end())
        return &found->second;
    if (folder.empty()) return nullptr;
  }
}

/// What `config` says, over what those say that it extends.
void TsConfigs::_take_in(Settings& settings, const Config& config, int& left) const {
  if (left-- <= 0) return;
  for (const std::string& path : config.extended)
    if (const Config* const other = _find(path)) _take_in(settings, *other, left);
  if (config.base) settings.base = &*config.base;
  if (!config.paths.empty()) settings.with_paths = &config;
}

TsConfigs::Settings TsConfigs::_settings(const Config& config) const {
  Settings settings;
  int left = MOST_TAKEN_IN;
  _take_in(settings, config, left);
  for (const std::string& path : config.referenced) {
    if (settings.with_paths != nullptr) break;
    const Config* const other = _find(path);
    if (other != nullptr && other->folder == config.folder) _take_in(settings, *other, left);
  }
  return settings;
}

std::string TsConfigs::Settings::target(std::string_view path) const {
  return joined(base != nullptr ? *base : with_paths->folder, path);
}

std::vector<std::string> TsConfigs::files_of(std::string_view importer,
                                             std::string_view module) const {
  std::vector<std::string> files;
  const Config* const nearest = _configs.empty() ? nullptr : _nearest(importer);
  if (nearest == nullptr) return files;
  const Settings settings = _settings(*nearest);
  if (settings.with_paths != nullptr) {
    // The module itself before the pattern that begins with most of it.
    const Targets* best = nullptr;
    std::string wildcard;
    std::size_t most = 0;
    for (const auto& [pattern, targets] : settings.with_paths->paths) {
      const std::size_t begin = pattern == module ? module.size() + 1 : pattern.find('*');
      if (best != nullptr && begin <= most) continue;
      const auto found = wildcard_of(pattern, module);
      if (!found) continue;
      best = &targets;
      wildcard = *found;
      most = begin;
    }
    for (std::string target : best != nullptr ? *best : Targets()) {
      if (const std::size_t star = target.find('*'); star != std::string::npos)
        target.replace(star, 1, wildcard);
      files.push_back(settings.target(target));
    }
  }
  if (settings.base != nullptr) files.push_back(joined(*settings.base, module));
  return files;
}

std::vector<std::string> TsConfigs::modules_of(std::string_view path) const {
  std::vector<std::string> modules;
  for (const auto& [name, config] : _configs) {
    const Settings settings = _settings(config);
    if (settings.with_paths == nullptr) continue;
    for (const auto& [pattern, targets] : settings.with_paths->paths) {
      const auto means = [&](const std::string& target) {
        const std::string file = settings.target(target);
        return file == path || file == without_extension(path) || file == folder_of(path);
      };
      if (std::any_of(targets.begin(), targets.end(), means)) modules.push_back(pattern);
    }
  }
  return modules;
}

}  // namespace veldra::tool
