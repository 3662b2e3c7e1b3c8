// Who imports a file or a module.
#include "veldra-index/search/importers.h"

#include "veldra-index/index/import_resolver.h"

namespace veldra::tool {
namespace {

/// A name is a path, the end of one, or, as an import would have it, a module of the repository.
constexpr std::string_view IMPORTS =
    "SELECT importer.path AS file, edges.line AS line, imported.path AS imports, 0 AS external"
    " FROM files imported"
    " JOIN symbols target ON target.file_id = imported.id AND target.kind = 'anchor'"
    " JOIN edges ON edges.target_id = target.id AND edges.kind = 'import'"
    " JOIN symbols source ON source.id = edges.source_id"
    " JOIN files importer ON importer.id = source.file_id"
    " WHERE imported.path IN (?1, ?2) OR substr(imported.path, -length(?1) - 1) = '/' || ?1"
    " UNION ALL "
    "SELECT files.path, external_imports.line, module, 1"
    " FROM external_imports JOIN files ON files.id = file_id"
    " WHERE module = ?1 OR substr(module, -length(?1) - 1) = '/' || ?1"
    " ORDER BY imports, file, line";

std::optional<std::string> file_of_module(ReadIndex& index, const std::string& name) {
  const std::vector<Row> rows = index.fetchall("SELECT path FROM files ORDER BY path");
  std::vector<std::string_view> paths;
  for (const Row& row : rows) paths.push_back(row[0].as_text());
  const ImportResolver resolver(paths);
  // An import takes the extension of the file that has it; here any will do.
  static constexpr std::string_view IMPORTERS_OF_MODULES[] = {"",       "x.py", "x.rb",
                                                              "x.java", "x.pm", "x.jl"};
  for (const std::string_view importer : IMPORTERS_OF_MODULES) {
    if (const auto found = resolver.resolve(importer, name)) return std::string(paths[*found]);
  }
  return std::nullopt;
}

}  // namespace

std::vector<Importer> importers_of(ReadIndex& index, const std::string& name) {
  std::vector<Importer> importers;
  for (const Row& row : index.fetchall(IMPORTS, {name, file_of_module(index, name)})) {
    const auto line = row[1].is_null() ? std::nullopt : std::optional(row[1].as_integer());
    importers.push_back({std::string(row[0].as_text()), line, std::string(row[2].as_text()),
                         row[3].as_integer() != 0});
  }
  return importers;
}

}  // namespace veldra::tool
