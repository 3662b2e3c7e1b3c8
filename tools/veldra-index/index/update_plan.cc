// What has changed since the index was made.
#include "veldra-index/index/update_plan.h"

#include <set>
#include <unordered_map>

#include "veldra-index/index/import_resolver.h"
#include "veldra-index/tree/path_text.h"

namespace veldra::tool {
namespace {

struct KnownFile {
  std::int64_t id;
  std::string stamp;
  std::int64_t size;
};

using KnownFiles = std::unordered_map<std::string, KnownFile>;

KnownFiles known_files(Database& index) {
  KnownFiles files;
  for (const Row& row : index.fetchall("SELECT path, id, hash, coalesce(size, -1) FROM files")) {
    files.emplace(row[0].as_text(), KnownFile{row[1].as_integer(), std::string(row[2].as_text()),
                                              row[3].as_integer()});
  }
  return files;
}

/// The files whose imports may mean another file than before: those that import a file which is
/// gone, or one whose name a new file shares, or something outside that a new file may be.
std::set<std::string> affected_importers(Database& index, const std::vector<std::string>& gone,
                                         const std::vector<std::string_view>& added) {
  std::set<std::string, std::less<>> names;
  for (const std::string& path : gone) names.emplace(file_name_of(path));
  for (const std::string_view path : added) names.emplace(file_name_of(path));
  std::set<std::string> importers;
  if (names.empty()) return importers;
  for (const Row& row :
       index.fetchall("SELECT DISTINCT source_file.path, target_file.path FROM edges"
                      " JOIN symbols source ON source.id = edges.source_id"
                      " JOIN files source_file ON source_file.id = source.file_id"
                      " JOIN symbols target ON target.id = edges.target_id"
                      " JOIN files target_file ON target_file.id = target.file_id"
                      " WHERE edges.kind = 'import'")) {
    if (names.contains(file_name_of(row[1].as_text()))) importers.emplace(row[0].as_text());
  }
  const ImportResolver resolver(added);
  for (const Row& row : index.fetchall("SELECT DISTINCT files.path, module FROM external_imports "
                                       "JOIN files ON files.id = file_id")) {
    if (resolver.resolve(row[0].as_text(), row[1].as_text())) importers.emplace(row[0].as_text());
  }
  return importers;
}

}  // namespace

PassPlan plan_update(Database& index, const Tree& tree) {
  const KnownFiles known = known_files(index);
  PassPlan plan;
  std::vector<std::string_view> added;
  std::set<std::string_view> present;
  std::vector<const SourcePath*> unchanged;
  for (const SourcePath& file : tree.files) {
    present.insert(file.path);
    const auto found = known.find(file.path);
    if (found == known.end()) {
      added.emplace_back(file.path);
      plan.files.push_back({file, {}});
    } else if (found->second.stamp == REINDEX_SENTINEL_HASH) {
      plan.files.push_back({file, {}});
    } else if (is_unchanged(found->second.stamp, found->second.size, file)) {
      unchanged.push_back(&file);
    } else {
      plan.files.push_back({file, found->second.stamp});
    }
  }
  for (const auto& [path, file] : known) {
    if (!present.contains(path)) plan.gone.push_back(path);
  }
  const std::set<std::string> importers = affected_importers(index, plan.gone, added);
  if (importers.empty()) return plan;
  for (PassFile& file : plan.files) {
    if (importers.contains(file.source.path)) file.known_stamp.clear();
  }
  for (const SourcePath* file : unchanged) {
    if (importers.contains(file->path)) plan.files.push_back({*file, {}});
  }
  return plan;
}

}  // namespace veldra::tool
