// veldra-index check: whether the file and the full-text index in it are sound.
#include <iostream>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/error_text.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

/// SQLite's integrity check does not look into a full-text table; this compares its words with its
/// text (https://www.sqlite.org/fts5.html#the_integrity_check_command).
bool full_text_is_sound(Database& index) {
  const Progress progress("Checking the full-text index", 0, "");
  try {
    index.execute("INSERT INTO code_chunks (code_chunks) VALUES ('integrity-check')");
    return true;
  } catch (const Error& error) {
    static constexpr int CORRUPT = 11;
    if ((error.code() & 0xFF) != CORRUPT) throw;
    return false;
  }
}

bool file_is_sound(Database& index) {
  const Progress progress("Checking the file", 0, "");
  return index.check_integrity();
}

int check(const Options& options) {
  const IndexPlace place = index_of(options.directory, options.db).place;
  bool file = false;
  bool full_text = false;
  try {
    OpenIndex index = OpenIndex::existing(place);
    file = file_is_sound(*index);
    full_text = full_text_is_sound(*index);
  } catch (const Error& damage) {
    if (!tells_of_damage(damage, place)) throw;
  }
  const auto word = [](bool sound) { return sound ? "ok" : "damaged"; };
  if (options.json)
    print_json({{"integrity", word(file)}, {"full_text", word(full_text)}});
  else if (!options.quiet || !file || !full_text)
    std::cout << "file       " << word(file) << "\nfull text  " << word(full_text) << '\n';
  if (file && full_text) return EXIT_DONE;
  throw Failure(place.db.string() + " is damaged: " + std::string(DAMAGE_ADVICE));
}

}  // namespace

Command check_command(const Options& options) {
  return {
      .name = "check",
      .summary = "Check that the index is sound",
      .details = "Checks the file and the full-text index in it.",
      .examples = {{"veldra-index check"}},
      .arguments = {},
      .exit_status = "1 when something is damaged",
      .run = [&options] { return check(options); },
  };
}

}  // namespace veldra::tool
