// veldra-index rebuild: a new index of the whole tree, in place of the old one.
#include <unistd.h>

#include <chrono>
#include <iostream>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/build_lock.h"
#include "veldra-index/index/make_index.h"
#include "veldra-index/parse/ctags.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

/// Makes sure before the work that there will be a place for its result.
std::optional<OpenIndex> open_old_index(const IndexPlace& place) {
  std::error_code error;
  if (!std::filesystem::exists(place.db, error)) return std::nullopt;
  if (::access(place.db.c_str(), W_OK) != 0)
    throw Failure(place.db.string() + " cannot be written; name another file with --db FILE");
  try {
    return OpenIndex::existing(place);
  } catch (const Error& damage) {
    if (!tells_of_damage(damage, place)) throw;
    set_aside(place);
    return std::nullopt;
  }
}

void print(const Options& options, const IndexPlace& place, const NewIndex& made, double seconds) {
  const RowCounts& rows = made.rows;
  const std::int64_t listed = rows.at("symbols") - rows.at("files");  // without the anchors
  if (options.json) {
    Json json;
    json["index"] = place.db.string();
    json["files"] = rows.at("files");
    json["symbols"] = listed;
    json["edges"] = rows.at("edges");
    json["external_imports"] = rows.at("external_imports");
    json["components"] = rows.at("components");
    json["errors"] = rows.at("index_errors");
    json["binary_files"] = made.result.binary;
    json["seconds"] = seconds;
    print_json(json);
    return;
  }
  if (options.quiet) return;
  std::cout << counted(rows.at("files"), "file", "files") << ", "
            << counted(listed, "symbol", "symbols") << ", "
            << counted(rows.at("edges") + rows.at("external_imports"), "import", "imports")
            << " in " << place.db.string() << '\n';
  if (rows.at("index_errors") > 0) {
    std::cout << counted(rows.at("index_errors"), "problem", "problems")
              << ": see `veldra-index errors`\n";
  }
}

int rebuild(const Options& options) {
  const auto begin = std::chrono::steady_clock::now();
  const IndexPlace place = find_index(options.directory, options.db);
  const CtagsProgram ctags = inspect_ctags();
  const BuildLock lock(place);
  const RemoveOnExit remove_on_exit(place.passing_files());
  std::optional<OpenIndex> index = open_old_index(place);

  const NewIndex made =
      make_index(index, place, walk_tree(place), extractor_versions(ctags), limits_of(options));
  record_pass(**index);
  print(options, place, made,
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  return EXIT_DONE;
}

}  // namespace

Command rebuild_command(const Options& options) {
  return {
      .name = "rebuild",
      .summary = "Index the whole tree anew",
      .details =
          "The old index answers until the new one takes its place, in one step; when this fails "
          "or is interrupted, it stays.",
      .examples = {{"veldra-index rebuild"},
                   {"veldra-index rebuild ~/src/project --db /tmp/project.db"}},
      .arguments = {},
      .exit_status = "",
      .run = [&options] { return rebuild(options); },
  };
}

}  // namespace veldra::tool
