#pragma once

struct sqlite3;

/// Checkpoints under which nobody can restart the log. Internal.
///
/// SQLite before 3.51.3 loses commits when another process restarts the log between two steps of a
/// checkpoint (https://www.sqlite.org/wal.html#walresetbug). While a checkpoint of this layer runs,
/// a read transaction of a second connection stands at the newest commit. Either it reads from the
/// log: then nobody can restart the log. Or all of the log is in the file and it reads the file
/// alone: then the checkpoint can copy nothing and leaves the log's header as it is.
///
/// It does so whatever the version is: the fault was mended in releases that only their makers can
/// list, and the guard costs 0.2 ms, less than 1 % of a checkpoint.
namespace veldra {

class Connection;

/// From here on a commit on `db` that leaves 1,000 frames or more in the log copies them into the
/// file, as SQLite would by itself (https://www.sqlite.org/c3ref/wal_autocheckpoint.html), but
/// guarded. Where the guard cannot be had (no descriptor is left, say) the next commit tries again.
void checkpoint_guarded_after_commits(sqlite3* db) noexcept;

/// Copies the log into the file and truncates it to nothing. True when it is empty now; false when
/// a reader or a writer did not let go of it within the connection's busy timeout, or the guard
/// cannot be had. Outside a transaction; throws what "PRAGMA wal_checkpoint" throws.
bool empty_log(Connection& connection);

}  // namespace veldra
