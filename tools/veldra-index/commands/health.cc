// veldra-index health: the state of the index and of its file.
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <iostream>

#include "veldra-index/commands/command.h"
#include "veldra-index/commands/sqlite_release.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/error_text.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/progress.h"

namespace veldra::tool {
namespace {

Json pragma(Database& index, const std::string& name) {
  const auto row = index.fetchone("PRAGMA " + name);
  return row ? to_json((*row)[0]) : Json();
}

/// By stat: opening a database's files drops this process's locks on them.
std::int64_t size_of(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

std::string auto_vacuum_name(const Json& mode) {
  static constexpr std::array<const char*, 3> NAMES = {"none", "full", "incremental"};
  const auto at = mode.get<std::size_t>();
  return at < NAMES.size() ? NAMES[at] : std::to_string(at);
}

bool is_sound(Database& index) {
  const Progress progress("Checking", 0, "");
  return index.check_integrity();
}

Json measure(Database& index, const IndexPlace& place) {
  const Statistics counts = index.get_stats();
  const std::int64_t bad_files = index.get_error_count();
  const std::int64_t files = counts.at("files");
  const auto version = index.fetchone("SELECT value FROM schema_info WHERE key = 'version'");
  const auto release = index.fetchone("SELECT sqlite_version()");
  Json json;
  json["files"] = files;
  json["files_with_errors"] = bad_files;
  json["error_share"] =
      files > 0 ? static_cast<double>(bad_files) / static_cast<double>(files) : 0.0;
  json["integrity"] = is_sound(index) ? "ok" : "damaged";
  json["schema_version"] = version ? to_json((*version)[0]) : Json();
  json["index_generation"] = index.index_generation();
  json["journal_mode"] = pragma(index, "journal_mode");
  json["page_size"] = pragma(index, "page_size");
  json["auto_vacuum"] = auto_vacuum_name(pragma(index, "auto_vacuum"));
  json["file_bytes"] = size_of(place.db.string());
  json["wal_bytes"] = size_of(place.db.string() + "-wal");
  json["free_pages"] = pragma(index, "freelist_count");
  json["free_bytes"] =
      json["free_pages"].get<std::int64_t>() * json["page_size"].get<std::int64_t>();
  json["sqlite_version"] = to_json((*release)[0]);
  json["wal_reset_fault"] = has_wal_reset_fault(json["sqlite_version"].get<std::string>());
  return json;
}

void print(const Json& json) {
  const auto line = [](const std::string& label, const std::string& text) {
    std::cout << label << std::string(20 - label.size(), ' ') << text << '\n';
  };
  const auto text = [&json](const char* name) {
    return json[name].is_string() ? json[name].get<std::string>() : json[name].dump();
  };
  std::array<char, 16> share{};
  (void)std::snprintf(share.data(), share.size(), "%.2f %%",
                      100 * json["error_share"].get<double>());
  line("files", with_commas(json["files"]));
  line("files with errors", with_commas(json["files_with_errors"]) + " (" + share.data() + ")");
  line("integrity", text("integrity"));
  line("schema version", text("schema_version"));
  line("index generation", text("index_generation"));
  line("journal mode", text("journal_mode"));
  line("page size", text("page_size") + " bytes");
  line("auto-vacuum", text("auto_vacuum"));
  line("size on disk", as_size(json["file_bytes"]));
  line("write-ahead log", as_size(json["wal_bytes"]));
  line("free pages", with_commas(json["free_pages"]) + " (" + as_size(json["free_bytes"]) + ")");
  line("SQLite", text("sqlite_version") +
                     (json["wal_reset_fault"].get<bool>()
                          ? " (commits of this layer's processes are guarded against its log-reset"
                            " fault; those beside a program that checkpoints by itself are not)"
                          : ""));
}

int health(const Options& options) {
  const IndexPlace place = index_of(options.directory, options.db).place;
  Json json;
  try {
    OpenIndex index = OpenIndex::existing(place);
    // All figures of one state, those of `Database` included: a transaction that only reads.
    index->transaction([&](Cursor&) { json = measure(*index, place); });
  } catch (const Error& damage) {
    if (!tells_of_damage(damage, place)) throw;
    json = {{"integrity", "damaged"}};
  }
  if (options.json)
    print_json(json);
  else if (json.size() > 1)
    print(json);
  if (json["integrity"] == "ok") return EXIT_DONE;
  throw Failure(place.db.string() + " is damaged: " + std::string(DAMAGE_ADVICE));
}

}  // namespace

Command health_command(const Options& options) {
  return {
      .name = "health",
      .summary = "Report on the state of the index and its file",
      .details = "Errors in files, the integrity of the file, its size and free space, and SQLite.",
      .examples = {{"veldra-index health"}, {"veldra-index health --json"}},
      .arguments = {},
      .exit_status = "1 when the file is damaged",
      .run = [&options] { return health(options); },
  };
}

}  // namespace veldra::tool
