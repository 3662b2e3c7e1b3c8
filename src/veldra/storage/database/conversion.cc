// The one-time conversion of a file made without auto-vacuum.
#include <cassert>
#include <chrono>
#include <string>

#include "veldra/platform/disk.h"
#include "veldra/sqlite/held_statement.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"

namespace veldra {

std::optional<Compaction> Database::_refuse_conversion(std::int64_t used, const IndexFile* file) {
  if (_conversion_failed) {
    return _skip_compaction("failed",
                            "an earlier conversion failed or changed nothing: not retried");
  }
  if (used > COMPACT_CONVERT_MAX_BYTES) {
    return _skip_compaction("large",
                            "too large to convert in place: " + std::to_string(used / _MIB) +
                                " MiB of data, the limit is " +
                                std::to_string(COMPACT_CONVERT_MAX_BYTES / _MIB) +
                                " MiB; its free pages stay until the index file is rebuilt");
  }
  if (!_readers.load()) {
    return _skip_compaction(
        "readers", "no read connections: a query would wait for the lock the conversion holds");
  }
  if (file == nullptr) return _skip_compaction("closed", "the database is closed");
  if (const auto shortfall = _disk_shortfall(file->path().parent_path(), used))
    return _skip_compaction("disk", *shortfall);
  return std::nullopt;
}

Compaction Database::_convert_to_incremental(const _Space& space) {
  using Clock = std::chrono::steady_clock;
  const std::shared_ptr<const IndexFile> file = _file.load();
  if (const auto refused = _refuse_conversion(space.used_bytes(), file.get())) return *refused;
  const Clock::time_point started = Clock::now();
  const std::int64_t size_before = disk().file_size(file->path());
  _Space after{};
  std::optional<bool> shrunk;  // none: closed meanwhile
  try {
    const Holding holding(*this, "compact");
    const std::shared_ptr<Connection> writer = _connection.load();
    if (writer && _space(*writer).mode == _AUTO_VACUUM_NONE) {
      _vacuum(*writer);
      shrunk = _shrink_file(*writer);
      after = _space(*writer);
    } else if (writer) {
      return {};  // another compaction converted it meanwhile
    }
  } catch (const Error&) {
    _conversion_failed = true;
    throw;
  } catch (const OSError&) {
    _conversion_failed = true;
    throw;
  }
  if (!shrunk) return _skip_compaction("closed", "the database is closed");
  if (!*shrunk) _note_later_shrinking();
  if (after.mode != _AUTO_VACUUM_INCREMENTAL) {
    _conversion_failed = true;
    return _skip_compaction("failed",
                            "the file was rewritten but is not in incremental auto-vacuum mode");
  }
  const std::int64_t released = space.pages - after.pages;
  log_line(LogUnit::Database, LogLevel::Info,
           "Converted " + db_path.string() + " to incremental auto-vacuum: " +
               _describe_shrinking(released, size_before, disk().file_size(file->path()),
                                   Clock::now() - started));
  return {.converted = true, .pages_released = released, .skipped = {}};
}

void Database::_vacuum(Connection& connection) {
  connection.execute("PRAGMA auto_vacuum=INCREMENTAL");
  naming_held_statement(connection, [&] { connection.execute("VACUUM"); });
}

}  // namespace veldra
