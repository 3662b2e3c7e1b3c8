#pragma once

#include <cstdint>
#include <string>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/freshness.h"
#include "veldra-index/index/read_index.h"
#include "veldra-index/search/hit_lines.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {

/// The index that a question is for, brought up to date first where that is asked for.
struct AskedIndex {
  AskedIndex(const Options& options, bool update);

  FoundIndex found;
  ReadIndex index;
  Freshness freshness;
};

/// Says on standard error what an answer lacks: "nothing found", how many lines of how many are
/// shown, how many files have changed since. Gives the exit status.
int end_answer(const Options& options, const AskedIndex& asked, std::int64_t shown,
               const std::string& nothing);

/// Says something to whoever reads the answer, beside it.
void say_beside(const Options& options, const std::string& text);

/// Says that `shown` lines are not all that were `found`, or counted.
void say_more(const Options& options, std::int64_t shown, std::int64_t found, bool all_counted);

/// A line of an answer with what was found in colour; a long one is cut around its first hit.
std::string shown(const MarkedLine& line, const Style& style);

/// `--update`, for a command that asks.
Argument update_argument(bool* target);

}  // namespace veldra::tool
