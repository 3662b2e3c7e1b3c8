// veldra-index update: brings the index to the state of the tree.
#include "veldra-index/commands/update.h"

#include <iostream>

#include "veldra-index/index/build_lock.h"
#include "veldra-index/index/make_index.h"
#include "veldra-index/index/staging_file.h"
#include "veldra-index/index/update_plan.h"
#include "veldra-index/parse/ctags.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

void print(const Options& options, const PassResult& result, const Compaction& compaction,
           std::int64_t files) {
  if (options.json) {
    Json json;
    json["files"] = files;
    json["parsed"] = result.parsed;
    json["removed"] = result.removed;
    json["unchanged"] = files - result.parsed;
    json["binary_files"] = result.binary;
    json["unusable_files"] = result.unusable;
    json["pages_released"] = compaction.pages_released;
    print_json(json);
    return;
  }
  if (options.quiet) return;
  if (result.parsed == 0 && result.removed == 0) {
    std::cout << "up to date: " << counted(files, "file", "files") << '\n';
  } else {
    std::cout << counted(result.parsed, "file", "files") << " indexed, "
              << with_commas(result.removed) << " removed, of " << with_commas(files) << '\n';
  }
}

/// What an update has done.
struct Updated {
  PassResult result;
  Compaction compaction;
  std::int64_t files;  // in the index
};

Updated update(const Options& options, const IndexPlace& place) {
  std::optional<OpenIndex> index = OpenIndex::existing(place);
  const BuildLock lock(place);
  const RemoveOnExit remove_on_exit(place.passing_files());
  StagingFile::remove(place.staging());
  const ExtractorVersions versions = extractor_versions(inspect_ctags());
  (*index)->refresh_extractor_stamp(versions);

  const Tree tree = walk_tree(place);
  const UpdatePlan plan = plan_update(**index, place.root, tree);
  PassResult result;
  if (plan.rebuild) {
    result = make_index(index, place, tree, versions, limits_of(options)).result;
    result.removed = static_cast<std::int64_t>(plan.lost.size());
  } else if (!plan.pass.files.empty() || !plan.pass.gone.empty()) {
    const StopInOrder stop_in_order;
    (*index)->transaction([&](Cursor& cursor) {
      result = run_pass(cursor, place, tree, plan.pass, limits_of(options));
    });
  }
  record_pass(**index);
  const std::optional<Row> files = (*index)->fetchone("SELECT count(*) FROM files");
  return {result, (*index)->compact(), (*files)[0].as_integer()};
}

}  // namespace

void bring_up_to_date(const Options& options, const IndexPlace& place) {
  update(options, place);
}

Command update_command(const Options& options) {
  return {
      .name = "update",
      .summary = "Index only what has changed",
      .details =
          "Indexes only files that are new or have changed, and those whose parser is another than "
          "before; takes files that are gone out of the index. Where so much has changed that it "
          "is faster, the index is made anew as by rebuild.",
      .examples = {{"veldra-index update"}, {"veldra-index update ~/src/project --json"}},
      .arguments = {},
      .exit_status = "",
      .run =
          [&options] {
            const IndexPlace place = index_of(options.directory, options.db).place;
            const Updated done = update(options, place);
            print(options, done.result, done.compaction, done.files);
            return EXIT_DONE;
          },
  };
}

}  // namespace veldra::tool
