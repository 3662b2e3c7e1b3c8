// How much of the file is in use, whether the disk can take a rewrite, and on which thread we are.
#include <array>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "veldra/errors.h"
#include "veldra/platform/disk.h"
#include "veldra/platform/event_loop.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"

namespace veldra {

namespace {

/// As it stands in a message: "." for an empty path, no separator at the end.
std::filesystem::path as_directory(const std::filesystem::path& path) {
  if (path.empty()) return ".";
  return path.has_filename() || !path.has_relative_path() ? path : path.parent_path();
}

/// Where a VACUUM of SQLite puts its copy.
std::filesystem::path temporary_directory() {
  const char* named =
      std::getenv("SQLITE_TMPDIR");  // NOLINT(concurrency-mt-unsafe): only read here
  return as_directory(named != nullptr && *named != '\0' ? named : disk().temporary_directory());
}

}  // namespace

_Space Database::_space(Connection& connection) {
  const auto pragma = [&](std::string_view name) {
    const std::optional<Row> row =
        connection.execute(std::string("PRAGMA ").append(name)).fetchone();
    return row.value()[0].as_integer();
  };
  // Braces run their initialisers in order.
  return {pragma("auto_vacuum"), pragma("page_count"), pragma("freelist_count"),
          pragma("page_size")};
}

std::optional<std::string> _disk_shortfall(const std::filesystem::path& db_dir,
                                           std::int64_t used_bytes) {
  const std::filesystem::path directory = as_directory(db_dir);
  const std::filesystem::path temporary = temporary_directory();
  // A VACUUM copies the data into a temporary file and writes the copy back through the log.
  const std::int64_t each = used_bytes + COMPACT_DISK_MARGIN_BYTES;
  std::vector<std::pair<std::filesystem::path, std::int64_t>> needs;
  if (_same_volume(directory, temporary))
    needs = {{directory, each + used_bytes}};
  else
    needs = {{directory, each}, {temporary, each}};
  for (const auto& [place, needed] : needs) {
    const std::int64_t free = disk().free_bytes(place);
    if (free < needed) {
      return "not enough disk space: " + std::to_string(free / _MIB) + " MiB free in " +
             place.string() + ", " + std::to_string(needed / _MIB) + " MiB needed";
    }
  }
  return std::nullopt;
}

bool _same_volume(const std::filesystem::path& first, const std::filesystem::path& second) {
  try {
    return disk().device(first) == disk().device(second);
  } catch (const OSError&) {
    return true;
  }
}

bool _on_event_loop() {
  return event_loop_runs_here();
}

}  // namespace veldra
