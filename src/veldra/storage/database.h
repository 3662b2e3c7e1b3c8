#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "veldra/errors.h"
#include "veldra/export.h"
#include "veldra/sqlite/connection.h"
#include "veldra/sqlite/cursor.h"
#include "veldra/sqlite/row.h"
#include "veldra/sqlite/value.h"
#include "veldra/storage/activity.h"
#include "veldra/storage/counts.h"
#include "veldra/storage/limits.h"
#include "veldra/storage/schema_version.h"
#include "veldra/storage/snapshot.h"
#include "veldra/sync/fair_mutex.h"
#include "veldra/sync/shared_slot.h"

namespace veldra {

class IndexFile;
class ReaderPool;
class StagingFile;
struct PageRewriteOutcome;
struct Asking;
struct _Space;
enum class LogLevel : std::uint8_t;

/// Keys of the table `schema_info`.
inline constexpr std::string_view EXTRACTOR_VERSIONS_KEY = "extractor_versions";
inline constexpr std::string_view LAST_INDEX_KEY =
    "last_index";  ///< the service's own; not read here

/// Error types for `Database::record_error`; the layer does not interpret them.
inline constexpr std::string_view FQN_COLLISION_ERROR = "fqn_collision";
inline constexpr std::string_view PARTIAL_PARSE_ERROR = "partial_parse";

/// `Database::compact` does nothing below this many free pages, or below this share of the file.
inline constexpr std::int64_t COMPACT_MIN_FREE_PAGES = 2048;
inline constexpr double COMPACT_MIN_FREE_RATIO = 0.1;
/// How many pages are released in one holding of the connection lock.
inline constexpr std::int64_t COMPACT_STEP_PAGES = 1024;
/// The most data, in bytes, that a conversion to incremental auto-vacuum rewrites in place.
inline constexpr std::int64_t COMPACT_CONVERT_MAX_BYTES = 1073741824;
/// What must stay free, in bytes, in each place that a VACUUM writes to, beside the data.
inline constexpr std::int64_t COMPACT_DISK_MARGIN_BYTES = 67108864;

/// How many read connections a database opens at most, 0 to 32: the environment variable
/// `VELDRA_DB_READERS`, read at every call; 6 when it is unset, blank or no whole number.
VELDRA_EXPORT int reader_count();

using RowCounts = Counts;
using Statistics = Counts;

/// The version of each language's extractor.
using ExtractorVersions = std::map<std::string, std::int64_t>;

/// What a compaction did.
struct Compaction {
  bool converted = false;           ///< this call converted the file to incremental auto-vacuum
  std::int64_t pages_released = 0;  ///< pages given back to the file system
  /// Why nothing was done; none when it ran or there was too little to do.
  std::optional<std::string> skipped;

  friend bool operator==(const Compaction&, const Compaction&) = default;
};

/// Whether a swap checks its staging file for damage first.
enum class StagingTrust : std::uint8_t {
  Checked,
  Vouched,  ///< the caller has just built and closed the file itself: the check is left out
};

/// The index file of one repository: one writer, many readers, one schema.
///
///     Database db("memory/codebase-index/index.db");
///     db.connect();
///     db.create_schema();
///     db.migrate_schema();
///     db.transaction([&](Cursor& cursor) {
///       cursor.execute("INSERT INTO files (path, language, hash) VALUES (?, ?, ?)",
///                      {"a.cc", "C++", "0f"});
///     });
///     for (const Row& row : db.fetchall("SELECT path FROM files ORDER BY path"))
///       use(row["path"].as_text());
///     db.close();
///
/// Writes of all threads go one after another through one connection, under the connection lock.
/// Queries that only read run on read connections of their own: they wait for nobody, and see what
/// has been committed. A thread inside its own transaction sees its own writes instead.
///
/// | state       | `closed()` | `connection()`                                            |
/// |-------------|------------|-----------------------------------------------------------|
/// | Unconnected | false      | throws "Database not connected. Call connect() first."    |
/// | Open        | false      | the writer connection                                     |
/// | Closed      | true       | throws "Database is closed."                              |
///
/// `connect` leads from Unconnected and Closed to Open, `close` from Open to Closed.
///
/// Thread safety: any member but `connect`, from any thread, at any time; `connect` runs while no
/// other thread uses the object. `_lock` guards every use of the writer connection; what each other
/// field is guarded by stands beside it.
/// Ownership: owns its connections. A cursor or connection kept beyond `close` throws when used.
/// Destroying an open `Database` closes it, readers first; errors are dropped then, so call
/// `close`.
/// Errors: `Error` of SQLite and `OSError` of the file system pass through unchanged;
/// `RuntimeError` when the database is not open; `ProgrammingError` to a function, hook or trace
/// callback of the host that re-enters the connection which is running it; `OperationalError` "the
/// index file was removed or replaced: close and connect again" where a write begins on a file that
/// has lost its name, where a read connection is opened then, and from `index_generation`. After
/// any of them the lock is free and no transaction is open.
class VELDRA_EXPORT Database {
 public:
  // Lifecycle  (database/lifecycle.cc) -----------------------------------------------------------

  /// Opens nothing. `db_path` is a plain file name, whatever it looks like, or exactly `:memory:`.
  explicit Database(std::filesystem::path db_path);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  const std::filesystem::path db_path;

  /// Creates the file's directory, opens the writer in WAL mode and, where that holds, a pool of
  /// `reader_count()` read connections.
  ///
  /// A new file gets pages of 8 KiB and incremental auto-vacuum; an existing one keeps its own
  /// (https://www.sqlite.org/pragma.html#pragma_page_size), is not written to, and may be written
  /// by others for as long as they like. Both connections use the name that SQLite gives the file
  /// now, absolute and without links, until `close`. On an open database the old writer and
  /// pool are replaced. Throws `OSError` (nothing has changed) or `Error`: when the file could not
  /// be opened the database is as before but no longer closed; when a pragma failed the new writer
  /// stays, partly configured, until `close`.
  void connect();

  /// Closes the read connections, then the writer: waits for the queries and the transaction that
  /// are running. May be repeated; does nothing before the first `connect`. From inside the calling
  /// thread's own transaction it rolls that back, and the end of the scope fails.
  void close();

  /// True from `close` to the next `connect`: tells a write that failed because of `close` apart.
  bool closed() const noexcept { return _closed; }

  /// The writer connection. Whoever uses it directly competes with the layer's own use of it.
  /// Throws `RuntimeError` when the database is not open.
  std::shared_ptr<Connection> connection() const;

  // Transactions and writes  (database/transactions.cc) ------------------------------------------

  /// Runs `body` inside a transaction: COMMIT when it returns, ROLLBACK when it throws anything;
  /// what it threw reaches the caller unchanged. A scope inside another joins it: only the
  /// outermost begins, commits or rolls back, and an error caught inside it undoes nothing.
  ///
  /// Holds the connection lock across `body`, which must not wait for a thread that writes. The
  /// cursor belongs to the scope. The transaction is deferred: one that reads first and writes
  /// later fails at once when another process wrote in between
  /// (https://www.sqlite.org/lang_transaction.html#read_transactions_versus_write_transactions).
  void transaction(const std::function<void(Cursor&)>& body);

  /// Runs one statement on the writer: inside the calling thread's transaction, otherwise committed
  /// when it completes. The cursor belongs to the caller; its rows are read without the lock.
  ///
  /// A cursor of a SELECT whose rows are not read to the end keeps its snapshot: once another
  /// process has written, every write of this one fails at once
  /// (https://www.sqlite.org/rescode.html#busy_snapshot), and a swap, `clear_all` and a compaction
  /// are refused; their error ends with the SQL of the statement that is held. Queries belong to
  /// `fetchone` and `fetchall`. Rows that a write made are read here, with RETURNING: only here are
  /// last_insert_rowid(), changes() and temporary tables those of the writer.
  Cursor execute(std::string_view sql, const Params& params = {});

  /// Runs `sql` once per element, each committed on its own outside a transaction; stops at the
  /// first that fails, and those before it stay.
  Cursor executemany(std::string_view sql, const ParamsList& params_list);

  // Queries  (database/queries.cc) ---------------------------------------------------------------

  /// The first row, or nothing. A statement that begins with SELECT or WITH runs on a read
  /// connection and waits for no writer; any other, and those of a thread inside its own
  /// transaction, on the writer. So `SELECT last_insert_rowid()` and `changes()` tell nothing of
  /// what was written, and temporary tables are not there: add RETURNING to the INSERT
  /// (https://www.sqlite.org/lang_returning.html).
  std::optional<Row> fetchone(std::string_view sql, const Params& params = {});
  std::vector<Row> fetchall(std::string_view sql, const Params& params = {});

  /// The same, ended with `QueryInterrupted` once a limit is reached.
  std::optional<Row> fetchone(std::string_view sql, const Params& params, const Limits& limits);
  std::vector<Row> fetchall(std::string_view sql, const Params& params, const Limits& limits);

  /// Shows the rows one by one as SQLite gives them, in constant memory, until `visit` returns
  /// false.
  ///
  ///     db.fetcheach("SELECT path FROM files", {}, [&](const Row& row) {
  ///       return out.write(row["path"].as_text());
  ///     });
  ///
  /// `visit` may query, write and open transactions through this `Database`. It keeps the read
  /// connection, and no lock; where the writer serves, as for `fetchone`, the connection lock. What
  /// it throws passes through unchanged. Once it has been shown a row nothing is run a second time:
  /// an error then passes through. A statement that writes has run to its end before the first row.
  ///
  /// `limits` are looked at before each row. Within `visit`, a query that finds no idle read
  /// connection is served by the writer, and `close`, `connect` and a rewrite of the pages by
  /// `migrate_schema` throw `ProgrammingError`.
  void fetcheach(std::string_view sql, const Params& params,
                 const std::function<bool(const Row&)>& visit, const Limits& limits = {});

  // Snapshot  (database/snapshot.cc) -------------------------------------------------------------

  /// Runs `body` with queries that all see one committed state, however much is written meanwhile;
  /// see `Snapshot`. What `body` throws passes through unchanged.
  ///
  /// `body` may write and open transactions through this `Database`: the snapshot does not see
  /// them. Another snapshot inside has a state of its own; what holds within `visit` of `fetcheach`
  /// holds within `body`. Where the writer serves, the snapshot is a transaction: it holds the
  /// connection lock, a `transaction` or another snapshot inside joins it, and it is rolled back
  /// when `body` throws. `limits` are for the whole of it: the wait, each query, and between two
  /// the next throws.
  void snapshot(const std::function<void(Snapshot&)>& body, const Limits& limits = {});

  // Schema  (database/schema.cc) -----------------------------------------------------------------

  /// Creates, in one transaction, what the file lacks of the current schema. Run at every open,
  /// before `migrate_schema` and everything else.
  void create_schema();

  /// Brings a file of an earlier release to `SCHEMA_VERSION`, and rewrites one with pages smaller
  /// than 8 KiB once; queries of other threads go on meanwhile. A version this build does not know
  /// is left alone. Throws `SchemaMigrationError`: the file is then at the version before the step
  /// that failed.
  void migrate_schema();

  // Generation and stamp  (database/generation.cc) -----------------------------------------------

  /// How often the index was replaced as a whole; every process that holds the file sees it. Caches
  /// keyed by file id are void when it has changed.
  std::int64_t index_generation();

  /// Marks the files of every language whose extractor is new or has another version stale, and
  /// records `versions`, in one transaction. Returns how many files were marked.
  std::int64_t refresh_extractor_stamp(const ExtractorVersions& versions);

  // Contents  (database/contents.cc) -------------------------------------------------------------

  /// Empties every index table, the error records and the text chunks, in one transaction.
  void clear_all();

  // Swap  (database/swap.cc) ---------------------------------------------------------------------

  /// Replaces the index by the contents of the file at `staging_path`, in one transaction that
  /// raises the generation, then compacts the file. Queries see the old rows until the commit.
  ///
  /// The columns are those of the live tables. Tables that both files declare alike are copied as
  /// trees, with their indexes and the full-text index: fastest is a staging file that has them
  /// all. Inside the caller's transaction, and where another component's trigger or foreign key
  /// stands on an index table, rows are copied one by one.
  ///
  /// The staging file is checked, and its foreign keys, before any lock is taken; it must not be
  /// written to meanwhile. It stays attached until the end of the caller's transaction.
  ///
  /// Returns the rows inserted per table, in the order of filling. On any error everything is as
  /// before, except inside the caller's transaction, which decides. Throws `FileNotFoundError` when
  /// nothing is there, and `Error` "the staging database is damaged: …" with SQLite's first finding
  /// when a `Checked` file is not sound.
  RowCounts swap_index_from(const std::filesystem::path& staging_path,
                            StagingTrust trust = StagingTrust::Checked);

  // Export  (database/export.cc) -----------------------------------------------------------------

  /// Writes a copy of the file, as it is at one commit, to `path` and returns its size in bytes.
  ///
  /// Holds no lock and needs no connection of the pool: queries and writes go on, and what they
  /// commit meanwhile is not in the copy; inside the caller's own transaction it is the last
  /// commit. The copy appears whole under its name or not at all, in place of a file that has it (a
  /// link is replaced, not followed). It has the page size, auto-vacuum mode, encoding, user
  /// version and application id of the original and is in rollback-journal mode, so it opens
  /// read-only on read-only media; `swap_index_from` takes it elsewhere.
  ///
  /// Throws `OSError` or `Error`, with nothing left behind; what a process that is killed leaves is
  /// removed by the next export to that name. One that a `close` overtakes goes on, and then leaves
  /// the file's log to the next open. Throws `ProgrammingError` for a path that is a part of the
  /// open index, also through a link, and for a database in memory.
  std::int64_t export_to(const std::filesystem::path& path);

  // Health  (database/health.cc) -----------------------------------------------------------------

  /// "files", "symbols" (those listed to a user), "edges", "components", "errors" (rows), in this
  /// order; five queries, not one snapshot.
  Statistics get_stats();

  /// True when SQLite finds the file sound
  /// (https://www.sqlite.org/pragma.html#pragma_integrity_check). Writers wait meanwhile, queries
  /// do not.
  bool check_integrity();

  /// Adds one error record; the same problem recorded twice is two records.
  void record_error(std::string_view file_path, std::string_view error_type,
                    std::optional<std::string_view> message = {},
                    std::optional<std::int64_t> line = {});

  /// Removes the records of a file, of one type or of all.
  void clear_file_errors(std::string_view file_path,
                         std::optional<std::string_view> error_type = {});

  /// How many files have at least one error record.
  std::int64_t get_error_count();

  // Activity  (database/activity.cc) -------------------------------------------------------------

  /// What is going on in this object right now. Waits for nobody: neither the connection lock nor a
  /// read connection. Throws `RuntimeError` when the database is not open.
  Activity activity() const;

  // Compaction  (database/compaction.cc, conversion.cc) ------------------------------------------

  /// Gives free pages back to the file system, in steps of `COMPACT_STEP_PAGES` between which
  /// writers get the lock, or converts a file without auto-vacuum once.
  ///
  /// Maintenance: what the database or the disk do ends in `skipped`, never in an exception. Blocks
  /// on the disk, so it declines on the host's event-loop thread, and inside a transaction of the
  /// caller.
  Compaction compact();

 private:
  friend class DatabaseCache;
  friend struct DatabaseTestAccess;

  // Lifecycle
  std::shared_ptr<ReaderPool> _open_readers(std::string_view journal_mode);
  /// Of a database that nobody has asked for a while: closes its idle read connections but one, and
  /// empties the page caches of that and of the writer. What is in use is left alone.
  void _give_back_memory();
  /// False when the file was removed or replaced since it was opened.
  bool _file_is_in_place() const;
  /// For a write, or in place of a reader: outside a transaction only while its file is in place.
  /// Caller holds _lock.
  std::shared_ptr<Connection> _writer_in_place() const;

  // Transactions and writes. Caller holds _lock.
  void _nested_scope(const std::function<void(Cursor&)>& body);
  void _outermost_scope(const std::function<void(Cursor&)>& body);

  // Queries
  template <typename Fetch>
  auto _query(std::string_view sql, const Params& params, Fetch fetch, const Asking& asking);
  Deadline _deadline(const Limits& limits) const;  // throws `QueryInterrupted` when it is over
  std::shared_ptr<ReaderPool> _readers_for(std::string_view sql) const;
  std::shared_ptr<ReaderPool> _readers_for_this_thread() const;
  std::chrono::milliseconds _patience() const noexcept;  // with a read connection that is lent
  std::int64_t _count(std::string_view sql);

  // Snapshot
  bool _snapshot_on_reader(const std::function<void(Snapshot&)>& body, const Deadline& deadline);

  // Schema
  void _rewrite_pages();
  std::optional<PageRewriteOutcome> _try_to_rewrite_pages();  // none: look again

  // Generation
  void _bump_index_generation(Cursor* cursor = nullptr);

  // Swap. Caller holds _lock.
  RowCounts _replace_contents(StagingFile& staging,
                              const std::function<void(const RowCounts&)>& before_commit);

  // Space. Caller holds the lock of `connection`'s database.
  static _Space _space(Connection& connection);

  // Compaction
  Compaction _compact();
  Compaction _skip_compaction(std::string_view kind, std::string_view reason);
  Compaction _skip_compaction(std::string_view kind, std::string_view reason, LogLevel level,
                              bool exc_info);
  std::int64_t _release_free_pages();
  bool _shrink_file(Connection& connection);  // false: later. Caller holds _lock
  void _note_later_shrinking() const;
  /// What speaks against a conversion now, said in the log; none when nothing does.
  std::optional<Compaction> _refuse_conversion(std::int64_t used, const IndexFile* file);
  Compaction _convert_to_incremental(const _Space& space);
  static void _vacuum(Connection& connection);  // caller holds _lock

  /// The connection lock, which orders every use of the writer connection, for a scope; `activity`
  /// shows what for. A callback that the writer runs is refused: whoever holds the lock may wait
  /// for the very call that the callback belongs to.
  class [[nodiscard]] Holding {
   public:
    /// `purpose` lives as long. Throws `QueryInterrupted` at `deadline`.
    Holding(Database& db, std::string_view purpose, const Deadline& deadline = {});
    Holding(const Holding&) = delete;
    Holding& operator=(const Holding&) = delete;
    ~Holding() { _lock.unlock(); }

   private:
    FairMutex& _lock;
  };

  SharedSlot<Connection> _connection;  // the writer; changed by connect and close
  SharedSlot<const IndexFile> _file;   // the writer's; changed with it
  FairMutex _lock;                     // taken by `Holding`
  int _tx_depth = 0;                   // open scopes; guarded by _lock
  std::atomic<bool> _closed = false;
  std::mutex _compaction_noted_mutex;                    // guards the next field
  std::set<std::string, std::less<>> _compaction_noted;  // kinds of skip reported at their level
  std::atomic<bool> _conversion_failed = false;
  // Read by every query, so on cache lines that the writes of other threads leave alone. Written
  // under _lock; a thread can only find its own id there itself.
  alignas(64) std::atomic<std::thread::id> _tx_owner;
  // Last, so that an open database that is destroyed closes its readers before its writer. Closed
  // but kept by close; replaced by connect and by the page rewrite.
  SharedSlot<ReaderPool> _readers;
};

}  // namespace veldra
