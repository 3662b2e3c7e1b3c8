// Creating and migrating the schema at every open, and the one-time rewrite to larger pages.
#include <exception>
#include <mutex>
#include <utility>

#include "veldra/sqlite/pragma.h"
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
  if (reached != SCHEMA_VERSION) return;
  log_line(LogUnit::Database, LogLevel::Info,
           "Schema version " + reached + " (recorded " + recorded + ")");
  _rewrite_pages();
}

void Database::_rewrite_pages() {
  std::optional<PageRewriteOutcome> tried;
  while (!tried) tried = _try_to_rewrite_pages();
  // Logged now that the lock is free: a sink may wait for a writer.
  const PageRewriteOutcome& outcome = *tried;
  if (!outcome.failure) {
    if (!outcome.left_undone.empty())
      log_line(LogUnit::StorageSize, LogLevel::Warning, outcome.left_undone);
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

std::optional<PageRewriteOutcome> Database::_try_to_rewrite_pages() {
  const std::shared_ptr<ReaderPool> readers = _readers.load();
  std::optional<Holding> holding(std::in_place, *this, "migrate_schema");
  const std::shared_ptr<Connection> writer = _writer_in_place();
  if (pragma_value(*writer, "page_size") >= PAGE_SIZE) return PageRewriteOutcome{};
  CallersCode::refuse(*this, "a rewrite of the index file's pages");
  const std::optional<std::string> why_not =
      _disk_shortfall(_file.load()->path().parent_path(), _space(*writer).used_bytes());

  const bool in_transaction = _tx_depth > 0;  // of this thread: SQLite will refuse
  struct Reopening {
    Database& db;
    const std::shared_ptr<ReaderPool> closed;
    std::shared_ptr<ReaderPool> next;
    ~Reopening() {
      const std::lock_guard guard(db._lock);
      if (db._connection.load() && db._readers.load() == closed) db._readers.store(next);
    }
  };
  // Made ahead: who closes a pool opens another on every path, also for want of memory.
  Reopening reopening{*this, readers,
                      in_transaction ? readers : _open_readers(readers ? "wal" : "")};
  // Leaving WAL mode needs the file alone. The readers are waited for without the lock, since a
  // snapshot's body that writes waits for that. Queries that meet the closed pool go to the writer.
  if (readers && !in_transaction) {
    holding.reset();
    readers->close();
    holding.emplace(*this, "migrate_schema");
    if (_readers.load() != readers) return std::nullopt;  // another rewrite, or `close`: look again
    if (pragma_value(*_writer_in_place(), "page_size") >= PAGE_SIZE) return std::nullopt;
  }
  const PageRewriteOutcome outcome = rewrite_pages(*writer, db_path, why_not);
  if (!in_transaction) {
    const std::optional<Row> mode = writer->fetchone("PRAGMA journal_mode");
    reopening.next = _open_readers(mode ? lower_case(stored_text((*mode)[0]).value_or("")) : "");
  }
  return outcome;
}

}  // namespace veldra
