// A new index of the whole tree, and its way into place.
#include "veldra-index/index/make_index.h"

#include <string>
#include <string_view>

#include "veldra-index/index/staging_file.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

PassPlan everything(const Tree& tree) {
  PassPlan plan;
  for (const SourcePath& file : tree.files) plan.files.push_back({file, {}});
  return plan;
}

RowCounts count_rows(Database& index) {
  static constexpr std::string_view TABLES[] = {
      "components", "files", "symbols", "edges", "external_imports", "index_errors"};
  RowCounts rows;
  for (const std::string_view table : TABLES) {
    const std::optional<Row> count = index.fetchone("SELECT count(*) FROM " + std::string(table));
    rows.add(table, (*count)[0].as_integer());
  }
  return rows;
}

RowCounts put_in_place(std::optional<OpenIndex>& index, StagingFile& staging,
                       const IndexPlace& place, const ExtractorVersions& versions) {
  const Progress progress("Replacing the index", 0, "");
  if (!index && staging.publish(place.db)) {
    index = OpenIndex::existing(place);
    return count_rows(**index);
  }
  staging.close();
  if (!index) index = OpenIndex::existing_or_new(place);
  // The stamp first: it marks files of the old index at most. After the swap it would mark new
  // ones.
  try {
    (*index)->refresh_extractor_stamp(versions);
    return (*index)->swap_index_from(place.staging(), StagingTrust::Vouched);
  } catch (const Error& damage) {
    if (!tells_of_damage(damage, place)) throw;
    index.reset();
    set_aside(place);
    return put_in_place(index, staging, place, versions);
  }
}

}  // namespace

NewIndex make_index(std::optional<OpenIndex>& index, const IndexPlace& place, const Tree& tree,
                    const ExtractorVersions& versions, const ParseLimits& limits) {
  NewIndex made;
  StagingFile staging(place.staging(), versions);
  {
    const StopInOrder stop_in_order;
    staging.fill([&](Cursor& cursor) {
      made.result = run_pass(cursor, place, tree, everything(tree), limits);
      if (!index) staging.start_writing();
    });
  }
  made.rows = put_in_place(index, staging, place, versions);
  return made;
}

}  // namespace veldra::tool
