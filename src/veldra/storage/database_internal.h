#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "veldra/logging.h"
#include "veldra/storage/database.h"
#include "veldra/storage/reader_pool.h"

/// What the rooms of `Database` share with each other and with nobody else. Internal.
namespace veldra {

inline constexpr std::int64_t _MIB = 1048576;

// Lifecycle  (database/lifecycle.cc) -------------------------------------------------------------

inline constexpr const char* _READERS_ENV = "VELDRA_DB_READERS";
inline constexpr int _DEFAULT_READERS = 6;
inline constexpr int _MAX_READERS = 32;

/// What the log is cut back to, in bytes, when it starts anew after a large transaction. A log of
/// that size holds what is written between two checkpoints, so it is not made anew each time
/// (https://www.sqlite.org/pragma.html#pragma_journal_size_limit).
inline constexpr std::int64_t _LOG_SIZE_LIMIT = 16 * _MIB;

/// The directory that holds `db_path`: "." for a bare file name.
std::filesystem::path _directory_of(const std::filesystem::path& db_path);

// Queries  (database/queries.cc) -----------------------------------------------------------------

/// In a message of a read connection: the writer connection has to run the statement.
inline constexpr std::array<std::string_view, 2> _READER_CANNOT_SERVE = {
    "readonly database", "unable to open database file"};

/// True when `sql` begins like a statement that only reads. A WITH that writes passes for one: the
/// read connection refuses it, and the writer runs it.
bool _is_read_statement(std::string_view sql);

/// True when the writer connection has to run the statement that a read connection refused.
bool _reader_cannot_serve(const OperationalError& error);

/// How a query is asked.
struct Asking {
  Deadline deadline = {};
  bool row_shown = false;  ///< to the caller: nothing may run a second time
};

/// What `fetchone` and `fetchall` do on a connection.
inline constexpr auto _fetch_one = [](Connection& connection, const auto&... query) {
  return connection.fetchone(query...);
};
inline constexpr auto _fetch_all = [](Connection& connection, const auto&... query) {
  return connection.fetchall(query...);
};

/// That a thread is inside a callback of the caller, a `visit` or the body of a snapshot, for as
/// long as it lives. There the thread may hold a read connection of `db`: what waits for one to
/// come back would wait for itself.
class CallersCode {
 public:
  explicit CallersCode(const Database& db) noexcept : _db(db), _outer(_innermost) {
    _innermost = this;
  }
  CallersCode(const CallersCode&) = delete;
  CallersCode& operator=(const CallersCode&) = delete;
  ~CallersCode() { _innermost = _outer; }

  static bool runs_here(const Database& db) noexcept;

  /// Throws `ProgrammingError` there: `what` cannot be done before the callback has returned.
  static void refuse(const Database& db, std::string_view what);

 private:
  const Database& _db;
  const CallersCode* const _outer;
  static thread_local const CallersCode* _innermost;
};

/// Runs one statement on `connection` and fetches from it, `_fetch_one` for instance: no statement
/// is open afterwards.
template <typename Fetch>
auto _run_query(Connection& connection, std::string_view sql, const Params& params, Fetch fetch) {
  return std::invoke(fetch, connection, sql, params);
}

// Generation and stamp  (database/generation.cc) -------------------------------------------------

/// The stored stamp as a mapping; none when there is no text, and, with a WARNING, when its format
/// is unknown.
std::optional<ExtractorVersions> _parse_extractor_stamp(std::optional<std::string_view> raw);

// Contents  (database/contents.cc) ---------------------------------------------------------------

/// Children before parents, so that no foreign key is broken on the way; filling is the reverse.
inline constexpr std::array<std::string_view, 6> CLEARING_ORDER = {
    "edges", "external_imports", "symbols", "files", "components", "index_errors"};

/// Empties the tables of `CLEARING_ORDER`, inside the caller's transaction.
void _delete_index_rows(Cursor& cursor);

/// "{'edges': 12, 'files': 3}"
std::string _describe(const RowCounts& counts);

/// True when `schema`, "main" or the name of an attached database, has the table `code_chunks`.
bool _has_code_chunks(Cursor& cursor, std::string_view schema = "main");

/// Makes the live `code_chunks` anew, inside the caller's transaction; false when there is none.
bool _empty_code_chunks(Cursor& cursor);

// Space  (database/space.cc) ---------------------------------------------------------------------

/// SQLite's own numbering of the auto-vacuum modes
/// (https://www.sqlite.org/pragma.html#pragma_auto_vacuum).
inline constexpr std::int64_t _AUTO_VACUUM_NONE = 0;
inline constexpr std::int64_t _AUTO_VACUUM_FULL = 1;
inline constexpr std::int64_t _AUTO_VACUUM_INCREMENTAL = 2;

/// How much of a database file is in use.
struct _Space {
  std::int64_t mode;       ///< the auto-vacuum mode
  std::int64_t pages;      ///< the size of the file in pages
  std::int64_t free;       ///< pages on the free list
  std::int64_t page_size;  ///< bytes per page

  std::int64_t used_bytes() const { return (pages - free) * page_size; }
};

/// Why the disk cannot hold a VACUUM of `used_bytes` of data, as a sentence; none when it can.
/// Throws `OSError` when the free space of `db_dir` cannot be told.
std::optional<std::string> _disk_shortfall(const std::filesystem::path& db_dir,
                                           std::int64_t used_bytes);

/// True when both directories are on one volume, and when that cannot be told: one volume is the
/// case that needs the most room on it.
bool _same_volume(const std::filesystem::path& first, const std::filesystem::path& second);

/// True when the calling thread is running the host's event loop.
bool _on_event_loop();

// Compaction  (database/compaction.cc) -----------------------------------------------------------

/// "12 free pages released (3 -> 2 MiB) in 0.1s", sizes given in bytes.
std::string _describe_shrinking(std::int64_t pages_released, std::int64_t size_before,
                                std::int64_t size_after, std::chrono::duration<double> took);

}  // namespace veldra
