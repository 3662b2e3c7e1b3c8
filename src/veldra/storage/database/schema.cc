// Creating and migrating the schema at every open, and the one-time rewrite to larger pages.
#include <exception>
#include <mutex>
#include <utility>

#include "veldra/storage/core_schema.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"
#include "veldra/storage/migrations.h"
#include "veldra/storage/storage_size.h"
#include "veldra/utils/ascii.h"

namespace veldra {

void Database::create_schema() {
  look_then_write([this](const auto& body) { transaction(body); }, create_tables);
}

void Database::migrate_schema() {
  std::optional<Row> row;
  try {
    row = fetchone("SELECT value FROM schema_info WHERE key = 'version'");
  } catch (const OperationalError&) {
    // A file without the table records no version.
  }
  const std::string recorded =
      (row ? stored_text((*row)[0]) : std::nullopt).value_or(std::string(OLDEST_VERSION));
  const std::string reached = migrate([this](const auto& body) { transaction(body); }, recorded);
  if (reached != SCHEMA_VERSION) {
    return;
  }
  log_line(LogUnit::Database, LogLevel::Info,
           "Schema version " + reached + " (recorded " + recorded + ")");
  _rewrite_pages();
}

void Database::_rewrite_pages() {
  PageRewriteOutcome outcome;  // logged once the lock is free: a sink may wait for a writer
  {
    const std::lock_guard guard(_lock);
    const std::shared_ptr<Connection> writer = _writer_in_place();
    const _Space space = _space(*writer);
    if (space.page_size >= PAGE_SIZE) {
      return;
    }
    const std::optional<std::string> why_not =
        _disk_shortfall(_file.load()->path().parent_path(), space.used_bytes());
    // Leaving WAL mode needs the file alone. Queries that meet the closed pool go to the writer and
    // wait for the lock.
    if (const std::shared_ptr<ReaderPool> readers = _readers.exchange(nullptr)) {
      readers->close();
    }
    outcome = rewrite_pages(*writer, db_path, why_not);
    const std::optional<Row> mode = writer->fetchone("PRAGMA journal_mode");
    _readers.store(_open_readers(mode ? lower_case(stored_text((*mode)[0]).value_or("")) : ""));
  }
  if (!outcome.failure) {
    if (!outcome.left_undone.empty()) {
      log_line(LogUnit::StorageSize, LogLevel::Warning, outcome.left_undone);
    }
    return;
  }
  try {
    std::rethrow_exception(outcome.failure);
  } catch (const std::exception& error) {
    log_line(LogUnit::StorageSize, LogLevel::Warning, outcome.left_undone, error,
             outcome.statement);
    throw;
  }
}

}  // namespace veldra
