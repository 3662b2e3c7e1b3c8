#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace veldra {

/// What SQLite asks of the system, as far as a test can make it fail.
enum class SystemCall { Open, Delete, Read, Write, Sync, Truncate, MapShared, LockShared, Memory };

/// Which calls fail, and with which of SQLite's codes (none for `Memory`).
struct Fault {
  SystemCall call;
  int code = SQLITE_NOMEM;
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
/// through it must be closed before it goes. One at a time in a process. Thread safety: any member,
/// from any thread.
class FaultVfs {
 public:
  FaultVfs();
  FaultVfs(const FaultVfs&) = delete;
  FaultVfs& operator=(const FaultVfs&) = delete;
  ~FaultVfs();

  /// Counts the calls from here on; n is 1 or more.
  void fail_nth(int n, const Fault& fault);

  /// Leaves so many bytes for files to grow by: what does not fit fails with SQLITE_FULL. None: as
  /// much as the real volume holds.
  void leave_room(std::optional<std::int64_t> bytes);

  /// Nothing fails any more.
  void heal();

  /// What was made to fail since `fail_nth` or `leave_room`, in order: "Write index.db-wal".
  std::vector<std::string> injected() const;

  /// How many files SQLite has open through it.
  int open_files() const;

  /// From here on remembers what is written and not yet synced, for files opened after this, and
  /// calls `before_change` before each write, truncation, sync and removal.
  void watch_changes(std::function<void()> before_change);

  /// Writes the watched files into `directory` as a loss of power now could leave them: each change
  /// since its file's last sync is there, missing or, a write, there in some sectors only.
  ///
  /// Removals and truncations come back only until the next sync of any file: file systems that
  /// keep a journal order them so.
  void save_as_after_power_loss(const std::filesystem::path& directory, std::mt19937& random) const;

 private:
  friend struct FaultVfsCalls;

  struct Change {
    enum class Kind { Write, Truncate, Name, Unname } kind;
    int inode;
    std::int64_t offset = 0;  // of a truncation: the new size
    std::string bytes = {};   // of a name: the path
  };
  struct Disk {
    std::map<std::string, int> names;
    std::map<int, std::string> contents;

    void apply(const Change& change);
  };

  bool _fails(SystemCall call, const char* path);
  bool _takes_room(std::int64_t bytes, const char* path);
  void _before(const char* path);
  void _change(Change change);
  void _synced(int inode);

  sqlite3_vfs* const _real;
  sqlite3_vfs _shim;

  mutable std::mutex _mutex;  // guards the rest; not held while `_before_change` runs
  std::optional<Fault> _fault;
  int _calls_until_fault = 0;
  std::optional<std::int64_t> _room;
  std::vector<std::string> _injected;
  int _open_files = 0;
  std::function<void()> _before_change;
  int _inodes = 0;
  std::map<std::string, int> _names;  // as they are now
  Disk _durable;                      // the watched files as of their last sync
  std::vector<Change> _pending;       // what came after it, in order
};

}  // namespace veldra
