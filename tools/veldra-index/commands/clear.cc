// veldra-index clear: empties the index.
#include <iostream>

#include "veldra-index/commands/commands.h"
#include "veldra-index/index/build_lock.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"

namespace veldra::tool {

int clear(const Options& options) {
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  const BuildLock lock(place);
  const RemoveOnExit remove_on_exit({place.lock()});
  const std::int64_t files = index->get_stats().at("files");
  index->clear_all();
  index->compact();
  if (options.json) {
    print_json({{"files_removed", files}});
  } else if (!options.quiet) {
    std::cout << with_commas(files) << " files removed from the index\n";
  }
  return EXIT_DONE;
}

}  // namespace veldra::tool
