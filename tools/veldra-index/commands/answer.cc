// What commands that ask the index have in common.
#include "veldra-index/commands/answer.h"

#include <iostream>

#include "veldra-index/commands/update.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/number_text.h"

namespace veldra::tool {
namespace {

FoundIndex find(const Options& options, bool update) {
  FoundIndex found = index_of(options.directory, options.db);
  if (update) bring_up_to_date(options, found.place);
  return found;
}

}  // namespace

AskedIndex::AskedIndex(const Options& options, bool update)
    : found(find(options, update)), index(found.place), freshness(index) {}

void say_beside(const Options& options, const std::string& text) {
  if (!options.quiet) std::cerr << "veldra-index: " << text << '\n';
}

int end_answer(const Options& options, const AskedIndex& asked, std::int64_t shown,
               const std::string& nothing) {
  std::cout.flush();  // the answer first
  if (const std::int64_t changed = asked.freshness.changed(); changed > 0) {
    say_beside(options, counted(changed, "file has", "files have") +
                            " changed since: ask with --update, or run `veldra-index update`");
  }
  if (shown > 0) return EXIT_DONE;
  say_beside(options, nothing);
  return EXIT_NOTHING;
}

Argument update_argument(bool* target) {
  return {"--update", "", "Bring the index up to date first", target};
}

}  // namespace veldra::tool
