// veldra-index clear: empties the index.
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/build_lock.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"

namespace veldra::tool {

namespace {

int clear(const Options& options) {
  const IndexPlace place = index_of(options.directory, options.db).place;
  OpenIndex index = OpenIndex::existing(place);
  const BuildLock lock(place);
  const RemoveOnExit remove_on_exit({place.lock()});
  const std::int64_t files = index->get_stats().at("files");
  index->clear_all();
  index->compact();
  if (options.json)
    print_json({{"files_removed", files}});
  else if (!options.quiet)
    std::cout << counted(files, "file", "files") << " removed from the index\n";
  return EXIT_DONE;
}

}  // namespace

Command clear_command(const Options& options) {
  const auto yes = std::make_shared<bool>(false);
  return {
      .name = "clear",
      .summary = "Empty the index",
      .details = "Takes every file out of the index and gives its pages back. Asks for --yes.",
      .examples = {{"veldra-index clear --yes"}},
      .arguments = {{"--yes", "", "Really empty it", yes.get()}},
      .exit_status = "",
      .run =
          [&options, yes] {
            if (!*yes) throw Failure("clear empties the index: add --yes to do it", EXIT_USAGE);
            return clear(options);
          },
  };
}

}  // namespace veldra::tool
