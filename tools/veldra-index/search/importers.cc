// Who imports a file or a module.
#include "veldra-index/search/importers.h"

#include <nlohmann/json.hpp>

#include "veldra-index/index/imports/import_resolver.h"
#include "veldra-index/tree/path_text.h"
#include "veldra/models/symbol.h"

namespace veldra::tool {
namespace {

/// A name is a path, the end of one, or, as an import would have it, a module of the repository.
constexpr std::string_view IMPORTS =
    "SELECT importer.path AS file, edges.line AS line, imported.path AS imports, 0 AS external"
    " FROM files imported"
    " JOIN symbols target ON target.file_id = imported.id AND target.kind = ?3"
    " JOIN edges ON edges.target_id = target.id AND edges.kind = 'import'"
    " JOIN symbols source ON source.id = edges.source_id"
    " JOIN files importer ON importer.id = source.file_id"
    " WHERE imported.path IN (SELECT value FROM json_each(?2)) OR substr(imported.path, "
    "-length(?1) - 1) = '/' || ?1"
    " UNION ALL "
    "SELECT files.path, external_imports.line, module, 1"
    " FROM external_imports JOIN files ON files.id = file_id"
    " WHERE module = ?1 OR substr(module, -length(?1) - 1) = '/' || ?1"
    " ORDER BY imports, file, line";

std::vector<std::string_view> paths_in(const std::vector<Row>& rows) {
  std::vector<std::string_view> paths;
  for (const Row& row : rows) paths.push_back(row[0].as_text());
  return paths;
}

/// The files that a module is, as an import from the root would name it; a JSON array.
std::string files_of_module(ReadIndex& index, const std::vector<std::string_view>& paths,
                            const std::string& name) {
  nlohmann::json files = {name};
  const ImportResolver resolver(paths, read_manifests(index.place().root, paths));
  for (const std::string_view importer :
       {"", "x.py", "x.rb", "x.java", "x.pm", "x.jl", "x.ts", "x.go", "x.rs"})
    for (const std::size_t found : resolver.resolve(importer, {name, {}, 0, false}))
      files.push_back(paths[found]);
  return files.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

std::vector<Importer> importers_of(ReadIndex& index, const std::string& name) {
  const std::vector<Row> rows = index.fetchall("SELECT path FROM files ORDER BY path");
  const std::string files = files_of_module(index, paths_in(rows), name);
  std::vector<Importer> importers;
  for (const Row& row : index.fetchall(IMPORTS, {name, files, ANCHOR_KIND})) {
    importers.push_back({std::string(row[0].as_text()),
                         row[1].is_null() ? std::nullopt : std::optional(row[1].as_integer()),
                         std::string(row[2].as_text()), row[3].as_integer() != 0});
  }
  return importers;
}

std::set<std::string_view> languages_without_imports(ReadIndex& index) {
  static constexpr std::pair<std::string_view, std::string_view> LANGUAGES[] = {
      {".cs", "C#"},       {".dart", "Dart"}, {".ex", "Elixir"},   {".hs", "Haskell"},
      {".kt", "Kotlin"},   {".php", "PHP"},   {".scala", "Scala"}, {".svelte", "Svelte"},
      {".swift", "Swift"}, {".vue", "Vue"},   {".zig", "Zig"}};
  std::set<std::string_view> unknown;
  index.fetcheach("SELECT path FROM files", {}, [&](const Row& row) {
    const std::string_view extension = extension_of(row[0].as_text());
    for (const auto& [name, language] : LANGUAGES)
      if (name == extension) unknown.insert(language);
    return true;
  });
  return unknown;
}

}  // namespace veldra::tool
