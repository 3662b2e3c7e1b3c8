// veldra-index compact: gives free pages back to the file system.
#include <atomic>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <thread>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

constexpr auto LOOK_EVERY = std::chrono::milliseconds(200);

std::int64_t free_pages(Database& index) {
  return (*index.fetchone("PRAGMA freelist_count"))[0].as_integer();
}

void show_released(Database& index, std::int64_t total, Progress& progress) {
  try {
    progress.set_done(
        static_cast<std::uint64_t>(std::max<std::int64_t>(total - free_pages(index), 0)));
  } catch (const Error&) {
    // The compaction itself says what is wrong with the file; the bar stands still meanwhile.
  }
}

/// Compacts, and looks between its steps at how many free pages are left.
Compaction compact_visibly(Database& index) {
  const std::int64_t total = free_pages(index);
  Progress progress("Compacting", static_cast<std::uint64_t>(total), "pages");
  std::mutex mutex;
  std::condition_variable_any woken;
  const std::jthread watcher([&](const std::stop_token& stop) {
    std::unique_lock lock(mutex);
    while (!woken.wait_for(lock, stop, LOOK_EVERY, [] { return false; }) && !stop.stop_requested())
      show_released(index, total, progress);
  });
  Compaction result = index.compact();
  progress.set_done(static_cast<std::uint64_t>(result.pages_released));
  return result;
}

int compact(const Options& options) {
  const IndexPlace place = index_of(options.directory, options.db).place;
  OpenIndex index = OpenIndex::existing(place);
  const Compaction result = compact_visibly(*index);
  if (options.json) {
    Json json;
    json["converted"] = result.converted;
    json["pages_released"] = result.pages_released;
    json["skipped"] = result.skipped ? Json(*result.skipped) : Json();
    print_json(json);
    return EXIT_DONE;
  }
  if (options.quiet) return EXIT_DONE;
  if (result.skipped)
    std::cout << "not compacted: " << *result.skipped << '\n';
  else if (result.converted)
    std::cout << "converted to incremental auto-vacuum\n";
  else
    std::cout << counted(result.pages_released, "page", "pages") << " given back\n";
  return EXIT_DONE;
}

}  // namespace

Command compact_command(const Options& options) {
  return {
      .name = "compact",
      .summary = "Give free pages back to the file system",
      .details =
          "Pages that nothing uses any more go back in small steps, so that others can write "
          "meanwhile.",
      .examples = {{"veldra-index compact"}},
      .arguments = {},
      .exit_status = "",
      .run = [&options] { return compact(options); },
  };
}

}  // namespace veldra::tool
