// An index pass: files in parallel, rows in one transaction.
#include "veldra-index/index/index_pass.h"

#include "veldra-index/index/index_writer.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {

PassResult run_pass(Cursor& cursor, const IndexPlace& place, const Tree& tree, const PassPlan& plan,
                    const ParseLimits& limits) {
  // First a statement that writes: the transaction then waits for other writers now, where it still
  // can, instead of failing later. What is unusable is tried, and recorded, anew in every pass.
  cursor.execute("DELETE FROM index_errors WHERE file_path NOT IN (SELECT path FROM files)");
  const std::vector<std::string_view> paths = paths_of(tree);

  PassResult result;
  IndexWriter writer(cursor, paths, read_manifests(place.root, paths));
  for (const std::string& path : plan.gone) result.removed += writer.remove(path);
  for (const Tree::Unreadable& folder : tree.unreadable)
    writer.record_problems(folder.path, {{"io_error", folder.message, std::nullopt}});
  Progress progress("Indexing", plan.files.size(), "files");
  parse_files(place.root, plan.files, limits, [&](const std::unique_ptr<ParsedFile>& file) {
    check_interrupted();
    progress.advance();
    if (file->source.kind == SourceText::Kind::Text) {
      writer.add(*file);
      ++(file->same_content ? result.unchanged : result.parsed);
      return;
    }
    result.removed += writer.remove(file->path);
    writer.record_problems(file->path, file->problems);
    ++(file->source.kind == SourceText::Kind::Binary ? result.binary : result.unusable);
  });
  writer.finish();
  return result;
}

void record_pass(Database& index) {
  index.execute(
      "INSERT OR REPLACE INTO schema_info (key, value)"
      " VALUES (?, strftime('%Y-%m-%dT%H:%M:%SZ', 'now'))",
      {LAST_INDEX_KEY});
}

}  // namespace veldra::tool
