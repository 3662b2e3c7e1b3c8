// Giving free pages back to the file system, step by step, without stopping anyone.
#include <cassert>
#include <chrono>
#include <iomanip>
#include <locale>
#include <sstream>
#include <utility>

#include "veldra/platform/disk.h"
#include "veldra/sqlite/checkpoint.h"
#include "veldra/sqlite/held_statement.h"
#include "veldra/sqlite/pragma.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"

namespace veldra {
namespace {

using Clock = std::chrono::steady_clock;

/// A checkpoint that waits for readers keeps every writer out meanwhile, so it waits this long at
/// most (https://www.sqlite.org/pragma.html#pragma_wal_checkpoint).
constexpr std::chrono::milliseconds CHECKPOINT_PATIENCE{100};

std::int64_t free_pages(Connection& connection) {
  return pragma_value(connection, "freelist_count");
}

}  // namespace

Compaction Database::compact() {
  try {
    return _compact();
  } catch (const Error& error) {
    return _skip_compaction("failed", std::string("failed: ") + error.what(), LogLevel::Warning,
                            true);
  } catch (const OSError& error) {
    return _skip_compaction("failed", std::string("failed: ") + error.what(), LogLevel::Warning,
                            true);
  }
}

Compaction Database::_compact() {
  if (_on_event_loop())
    return _skip_compaction("loop", "called on the event loop: a pool thread compacts");
  _Space space{};
  std::shared_ptr<const IndexFile> file;
  bool is_open = false;
  bool in_transaction = false;
  {
    const Holding holding(*this, "compact");
    const std::shared_ptr<Connection> writer = _connection.load();
    is_open = writer != nullptr;
    in_transaction = _tx_depth > 0;
    if (is_open && !in_transaction) {
      space = _space(*writer);
      file = _file.load();
    }
  }
  if (!is_open) return _skip_compaction("closed", "the database is closed");
  if (in_transaction) return _skip_compaction("transaction", "called inside a transaction");
  const double share = static_cast<double>(space.pages) * COMPACT_MIN_FREE_RATIO;
  if (space.free < COMPACT_MIN_FREE_PAGES || static_cast<double>(space.free) < share) return {};
  if (space.mode == _AUTO_VACUUM_NONE) return _convert_to_incremental(space);

  const Clock::time_point started = Clock::now();
  const std::int64_t size_before = disk().file_size(file->path());
  const std::int64_t released = _release_free_pages();
  bool shrunk = true;
  {
    const Holding holding(*this, "compact");
    if (const std::shared_ptr<Connection> writer = _connection.load())
      shrunk = _shrink_file(*writer);
  }
  if (!shrunk) _note_later_shrinking();
  log_line(LogUnit::Database, LogLevel::Info,
           "Compacted " + db_path.string() + ": " +
               _describe_shrinking(released, size_before, disk().file_size(file->path()),
                                   Clock::now() - started));
  return {.converted = false, .pages_released = released, .skipped = {}};
}

std::int64_t Database::_release_free_pages() {
  const std::string step = "PRAGMA incremental_vacuum(" + std::to_string(COMPACT_STEP_PAGES) + ")";
  std::int64_t released = 0;
  while (true) {
    // Free between two steps: the lock then goes to the writer that has waited longest, and every
    // step finds the file as that writer left it.
    const Holding holding(*this, "compact");
    const std::shared_ptr<Connection> writer = _connection.load();
    if (!writer) return released;
    const std::int64_t free = free_pages(*writer);
    if (free == 0) return released;
    naming_held_statement(*writer, [&] { writer->execute(step); });
    const std::int64_t remaining = free_pages(*writer);
    if (remaining >= free) return released;
    released += free - remaining;
  }
}

bool Database::_shrink_file(Connection& connection) {
  assert(_lock.held_by_this_thread());
  const ScopedBusyTimeout short_patience(connection, CHECKPOINT_PATIENCE);
  return naming_held_statement(connection, [&] { return empty_log(connection); });
}

void Database::_note_later_shrinking() const {
  log_line(
      LogUnit::Database, LogLevel::Info,
      "Compaction of " + db_path.string() +
          ": a reader still uses an older snapshot, so the file shrinks at a later checkpoint");
}

Compaction Database::_skip_compaction(std::string_view kind, std::string_view reason) {
  return _skip_compaction(kind, reason, LogLevel::Info, false);
}

Compaction Database::_skip_compaction(std::string_view kind, std::string_view reason,
                                      LogLevel level, bool exc_info) {
  bool first = false;
  {
    const std::lock_guard guard(_compaction_noted_mutex);
    first = _compaction_noted.emplace(kind).second;
  }
  if (!first) level = LogLevel::Debug;
  const std::string line = "Compaction of " + db_path.string() + " skipped: " + std::string(reason);
  if (exc_info) {
    try {
      throw;  // the error that the caller is handling
    } catch (const std::exception& error) {
      log_line(LogUnit::Database, level, line, error, "compacting " + db_path.string());
    }
  } else {
    log_line(LogUnit::Database, level, line);
  }
  return {.converted = false, .pages_released = 0, .skipped = std::string(reason)};
}

std::string _describe_shrinking(std::int64_t pages_released, std::int64_t size_before,
                                std::int64_t size_after, std::chrono::duration<double> took) {
  std::ostringstream text;
  text.imbue(std::locale::classic());  // the host's own would group the digits
  text << pages_released << " free pages released (" << size_before / _MIB << " -> "
       << size_after / _MIB << " MiB) in " << std::fixed << std::setprecision(1) << took.count()
       << 's';
  return text.str();
}

}  // namespace veldra
