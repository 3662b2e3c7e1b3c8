// veldra-index import: an exported index in the place of the one here.
#include <charconv>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/build_lock.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/process/interrupt.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

/// What `schema_info` of an exported file says.
struct Exported {
  Value extractor_versions, last_index;
};

Value recorded(Connection& file, std::string_view key) {
  const auto row = file.fetchone("SELECT value FROM schema_info WHERE key = ?", {key});
  return row && !(*row)[0].is_null() ? Value((*row)[0].as_text()) : Value();
}

/// Throws `Failure` for what is no index of this schema.
Exported inspect(const fs::path& path) {
  std::error_code error;
  if (!fs::exists(path, error)) throw Failure("no such file: " + path.string());
  try {
    Connection file(path, Connection::Mode::ReadOnly);
    const Value version = recorded(file, "version");
    if (!version.is_null() && version.as_text() == SCHEMA_VERSION)
      return {recorded(file, EXTRACTOR_VERSIONS_KEY), recorded(file, LAST_INDEX_KEY)};
    throw Failure(path.string() + " has schema version " +
                  std::string(version.is_null() ? "0" : version.as_text()) + ", this release " +
                  std::string(SCHEMA_VERSION) +
                  ": export it with the same release of veldra-index as this one");
  } catch (const Error& refused) {
    throw Failure(path.string() + " is no index: " + refused.what() +
                  "; name a file that veldra-index export has written");
  }
}

void record(Database& index, std::string_view key, const Value& value) {
  index.execute("INSERT OR REPLACE INTO schema_info (key, value) VALUES (?, ?)", {key, value});
}

/// The stamp comes last: without one, an update parses every file again.
RowCounts swap_in(Database& index, const fs::path& file, const Exported& exported) {
  const Progress progress("Importing", 0, "");
  const Value before = [&] {
    const auto row =
        index.fetchone("SELECT value FROM schema_info WHERE key = ?", {EXTRACTOR_VERSIONS_KEY});
    return row && !(*row)[0].is_null() ? Value((*row)[0].as_text()) : Value();
  }();
  record(index, EXTRACTOR_VERSIONS_KEY, nullptr);
  RowCounts rows;
  try {
    rows = index.swap_index_from(file);
  } catch (const std::exception&) {
    record(index, EXTRACTOR_VERSIONS_KEY, before);
    throw;
  }
  record(index, LAST_INDEX_KEY, exported.last_index);
  record(index, EXTRACTOR_VERSIONS_KEY, exported.extractor_versions);
  return rows;
}

int import_index(const Options& options, const fs::path& file) {
  const Exported exported = inspect(file);
  const IndexPlace place = find_index(options.directory, options.db);
  const BuildLock lock(place);
  const RemoveOnExit remove_on_exit({place.lock()});
  OpenIndex index = OpenIndex::existing_or_new(place);
  const RowCounts rows = swap_in(*index, file, exported);
  if (options.json)
    print_json({{"index", place.db.string()}, {"files", rows.at("files")}});
  else if (!options.quiet)
    std::cout << counted(rows.at("files"), "file", "files") << " in " << place.db.string() << '\n';
  return EXIT_DONE;
}

}  // namespace

Command import_command(const Options& options) {
  const auto file = std::make_shared<fs::path>();
  return {
      .name = "import",
      .summary = "Put an exported index in the place of the one here",
      .details =
          "The file is checked first. Searches see the old index until the new one is whole, and "
          "an update then parses what has changed since the export.",
      .examples = {{"veldra-index import /srv/indexes/project.db"}},
      .arguments = {{.names = "FILE",
                     .value = "",
                     .text = "A file that veldra-index export has written",
                     .target = file.get(),
                     .required = true,
                     .completion = Argument::Completion::File}},
      .exit_status = "",
      .run = [&options, file] { return import_index(options, *file); },
  };
}

}  // namespace veldra::tool
