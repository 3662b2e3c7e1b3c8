#pragma once

#include <sqlite3.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace veldra {

/// What SQLite asks of the system, as far as a test can make it fail.
enum class SystemCall { Open, Delete, Read, Write, Sync, Truncate, MapShared, LockShared, Memory };

/// Which calls fail, and with which of SQLite's codes.
struct Fault {
  SystemCall call;
  int code;
  bool lasting = false;  ///< the n-th call and all after it, instead of the n-th alone
};

/// SQLite's default file system for as long as it lives: passes everything on to the real one,
/// except what it was told to fail.
///
///     FaultVfs vfs;
///     vfs.fail_nth(3, {SystemCall::Sync, SQLITE_IOERR_FSYNC});
///     … open a database and use it; afterwards vfs.injected() is not empty …
///
/// A write that fails has written its first half; a sync writes nothing through to the real disk. A
/// loss of power is played by `watch_changes` and `save_as_after_power_loss`. Connections opened
/// through it must be closed before it goes. One at a time in a process.
/// Thread safety: any member but `watch_changes`, from any thread.
class FaultVfs {
 public:
  FaultVfs();
  FaultVfs(const FaultVfs&) = delete;
  FaultVfs& operator=(const FaultVfs&) = delete;
  ~FaultVfs();

  /// Counts the calls from here on; n is 1 or more.
  void fail_nth(int n, const Fault& fault);

  /// Lets files grow by so many bytes in all: what does not fit fails with SQLITE_FULL.
  void leave_room(std::int64_t bytes);

  /// Nothing fails any more.
  void heal();

  /// The file on which something was first made to fail since `fail_nth` or `leave_room`, or "".
  std::string injected() const;

  /// Calls `then` once: before a checkpoint next asks for its lock, or when it has read the log's
  /// header, found it changed and not used it yet. `then` must not use the connection that runs the
  /// checkpoint.
  void before_checkpoint(std::function<void()> then) { _before_checkpoint = std::move(then); }
  void after_log_header(std::function<void()> then) { _after_log_header = std::move(then); }

  /// How many files SQLite has open through it.
  int open_files() const { return _open_files; }

  /// From here on remembers what is written in `directory` and not yet synced, and calls
  /// `before_change` before each write, truncation, sync and removal. Before any file is opened.
  void watch_changes(const std::filesystem::path& directory, std::function<void()> before_change);

  /// Writes the watched files into `directory` as a loss of power now could leave them: each write
  /// since its file's last sync is there, missing, or there in some sectors only.
  ///
  /// A removal or truncation that is missing takes all that followed with it; after the next sync
  /// of any file it is there, with all that came before: as file systems that keep a journal do.
  void save_as_after_power_loss(const std::filesystem::path& directory, std::mt19937& random) const;

 private:
  friend struct FaultVfsCalls;

  struct Change {
    SystemCall call;
    std::string file;         // its name without the directory
    std::int64_t offset = 0;  // of a truncation: the new size
    std::string bytes = {};
  };
  using Contents = std::map<std::string, std::string>;  // by the file's name

  static void _apply(const Change& change, Contents& files);
  int _outcome(SystemCall call, const char* path, std::int64_t growth = 0);
  void _change(SystemCall call, const char* path, std::int64_t offset = 0,
               std::string_view bytes = {});

  sqlite3_vfs* const _real;
  sqlite3_vfs _shim;
  std::atomic<int> _open_files = 0;
  std::function<void()> _before_change;
  std::function<void()> _before_checkpoint;
  std::function<void()> _after_log_header;

  mutable std::mutex _mutex;  // guards the rest; not held while `_before_change` runs
  std::optional<Fault> _fault;
  int _calls_until_fault = 0;
  std::optional<std::int64_t> _room;
  std::string _injected;
  Contents _durable;             // the watched files as of their last sync
  std::vector<Change> _pending;  // what came after it, in order
};

}  // namespace veldra
