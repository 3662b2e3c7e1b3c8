// What commands that ask the index have in common.
#include "veldra-index/commands/answer.h"

#include <algorithm>
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

/// Longer lines are cut.
constexpr std::size_t MOST_COLUMNS = 500;

/// `at`, or the beginning of the character that it is in the middle of.
std::size_t at_character(std::string_view text, std::size_t at) {
  while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U)
    --at;
  return at;
}

}  // namespace

AskedIndex::AskedIndex(const Options& options, bool update)
    : found(find(options, update)), index(found.place), freshness(index) {}

void say_beside(const Options& options, const std::string& text) {
  if (!options.quiet) std::cerr << "veldra-index: " << text << '\n';
}

void say_more(const Options& options, std::int64_t shown, std::int64_t found, bool all_counted) {
  say_beside(options, with_commas(shown) + " of " + (all_counted ? "" : "more than ") +
                          with_commas(found) + " lines; -n for more");
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

std::string shown(const MarkedLine& line, const Style& style) {
  const std::string_view whole = line.text;
  std::size_t from = 0;
  std::size_t to = whole.size();
  if (to > MOST_COLUMNS) {
    const std::size_t hit = line.hits.empty() ? 0 : line.hits.front().first;
    from = at_character(whole, hit - std::min(hit, MOST_COLUMNS / 4));
    to = at_character(whole, std::min(to, from + MOST_COLUMNS));
  }
  std::string text = from > 0 ? "…" : "";
  std::size_t at = from;
  for (const auto& [begin, end] : line.hits) {
    if (end > to || begin < at) continue;
    text += one_line(whole.substr(at, begin - at)) +
            style.hit(one_line(whole.substr(begin, end - begin)));
    at = end;
  }
  text += one_line(whole.substr(at, to - at));
  return to < whole.size() ? text + "…" : text;
}

Argument update_argument(bool* target) {
  return {"--update", "", "Bring the index up to date first", target};
}

}  // namespace veldra::tool
