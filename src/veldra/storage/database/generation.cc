// The index generation in the file's header, and the stamp of the extractors' versions.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"
#include "veldra/storage/migrations.h"
#include "veldra/utils/flat_json.h"

namespace veldra {

namespace {

/// The languages of `current` that `stored` has with another version or not at all, in order.
std::vector<std::string> changed_languages(const ExtractorVersions& current,
                                           const ExtractorVersions& stored) {
  std::vector<std::string> changed;
  for (const auto& [language, version] : current) {
    const auto known = stored.find(language);
    if (known == stored.end() || known->second != version) changed.push_back(language);
  }
  return changed;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text.append(text.empty() ? "" : ", ").append(name);
  return text;
}

void warn_of_unknown_format(std::string_view stamp) {
  log_line(LogUnit::Database, LogLevel::Warning,
           "Extractor stamp " + quoted(stamp) + " has an unknown format; treating it as absent");
}

}  // namespace

std::int64_t Database::index_generation() {
  if (const std::shared_ptr<const IndexFile> file = _file.load()) file->require_in_place();
  const std::optional<Row> row = fetchone("PRAGMA user_version");
  return row ? (*row)[0].as_integer() : 0;
}

void Database::_bump_index_generation(Cursor* cursor) {
  // SQLite binds no parameter in a PRAGMA; a number cannot hold anything else.
  const std::string sql = "PRAGMA user_version = " + std::to_string(index_generation() + 1);
  if (cursor != nullptr)
    cursor->execute(sql);
  else
    execute(sql);
}

std::int64_t Database::refresh_extractor_stamp(const ExtractorVersions& versions) {
  const ExtractorVersions current = versions;
  // The lines are logged after the transaction: a sink may wait for a thread that writes.
  std::optional<std::string> unknown;  // a stamp without a known format
  std::string marked_line;
  std::int64_t marked = 0;
  look_then_write(
      [this](const auto& body) { transaction(body); },
      [&](Cursor& cursor) {
        cursor.execute("SELECT value FROM schema_info WHERE key = ?", {EXTRACTOR_VERSIONS_KEY});
        const std::optional<Row> row = cursor.fetchone();
        const std::optional<std::string> raw = row ? stored_text((*row)[0]) : std::nullopt;
        const std::optional<ExtractorVersions> known = raw ? parse_flat_json(*raw) : std::nullopt;
        unknown = known ? std::nullopt : raw;
        const ExtractorVersions stored = known.value_or(ExtractorVersions());
        marked = 0;
        if (stored == current) return;
        const std::vector<std::string> changed = changed_languages(current, stored);
        if (!changed.empty()) marked = mark_files_stale(cursor, changed);
        marked_line = "Extractor changed for " + joined(changed) + ": " + std::to_string(marked) +
                      " files marked for re-indexing";
        cursor.execute("INSERT OR REPLACE INTO schema_info (key, value) VALUES (?, ?)",
                       {EXTRACTOR_VERSIONS_KEY, format_flat_json(current)});
      });
  if (unknown) warn_of_unknown_format(*unknown);
  if (marked != 0) log_line(LogUnit::Database, LogLevel::Info, marked_line);
  return marked;
}

std::optional<ExtractorVersions> _parse_extractor_stamp(std::optional<std::string_view> raw) {
  if (!raw) return std::nullopt;
  std::optional<ExtractorVersions> stamp = parse_flat_json(*raw);
  if (!stamp) warn_of_unknown_format(*raw);
  return stamp;
}

}  // namespace veldra
