#include "support/fault_vfs.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <new>
#include <set>
#include <utility>

namespace veldra {
namespace {

constexpr std::size_t SECTOR = 512;

std::atomic<FaultVfs*> active = nullptr;
sqlite3_mem_methods real_memory;

const char* name_of(SystemCall call) {
  static constexpr std::array NAMES = {"Open",     "Delete",    "Read",       "Write", "Sync",
                                       "Truncate", "MapShared", "LockShared", "Memory"};
  return NAMES.at(static_cast<std::size_t>(call));
}

/// One open file of SQLite's, in memory that SQLite provides; the real file's follows.
struct File : sqlite3_file {
  FaultVfs* vfs;
  const char* path;  // SQLite keeps it until the file is closed; none for a temporary file
  int inode = 0;     // 0 while changes are not watched

  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

std::int64_t size_of(sqlite3_file* file) {
  sqlite3_int64 size = 0;
  file->pMethods->xFileSize(file, &size);
  return size;
}

}  // namespace

/// SQLite's callbacks.
struct FaultVfsCalls {
  static File& file(sqlite3_file* raw) { return *static_cast<File*>(raw); }

  /// Passes a call on to the real file, unless it is to fail.
  template <typename Method, typename... Arguments>
  static int pass(sqlite3_file* raw, SystemCall call, int code, Method method, Arguments... rest) {
    File& it = file(raw);
    if (it.vfs->_fails(call, it.path)) return code;
    return (it.real()->pMethods->*method)(it.real(), rest...);
  }
  static int code_of(sqlite3_file* raw) { return code_of(*file(raw).vfs); }
  static int code_of(FaultVfs& vfs) {
    const std::lock_guard guard(vfs._mutex);
    return vfs._fault ? vfs._fault->code : SQLITE_OK;
  }

  static int open(sqlite3_vfs* shim, const char* path, sqlite3_file* raw, int flags, int* out) {
    auto& vfs = *static_cast<FaultVfs*>(shim->pAppData);
    File& it = *new (raw) File{{nullptr}, &vfs, path};
    if (vfs._fails(SystemCall::Open, path)) return code_of(vfs);
    const int code = vfs._real->xOpen(vfs._real, path, it.real(), flags, out);
    if (it.real()->pMethods == nullptr) return code;
    it.pMethods = &METHODS;
    if (code == SQLITE_OK) opened(it);
    return code;
  }
  static void opened(File& it) {
    FaultVfs& vfs = *it.vfs;
    const std::lock_guard guard(vfs._mutex);
    ++vfs._open_files;
    if (!vfs._before_change || it.path == nullptr) return;
    const auto known = vfs._names.find(it.path);
    it.inode = known != vfs._names.end() ? known->second : ++vfs._inodes;
    if (known != vfs._names.end()) return;
    vfs._names.emplace(it.path, it.inode);
    std::string content(static_cast<std::size_t>(size_of(it.real())), '\0');
    it.real()->pMethods->xRead(it.real(), content.data(), static_cast<int>(content.size()), 0);
    if (content.empty()) {
      vfs._pending.push_back({FaultVfs::Change::Kind::Name, it.inode, 0, it.path});
    } else {
      vfs._durable.names.emplace(it.path, it.inode);
      vfs._durable.contents.emplace(it.inode, std::move(content));
    }
  }
  static int close(sqlite3_file* raw) {
    File& it = file(raw);
    {
      const std::lock_guard guard(it.vfs->_mutex);
      --it.vfs->_open_files;
      if (it.path == nullptr && it.vfs->_room) *it.vfs->_room += size_of(it.real());
    }
    return it.real()->pMethods->xClose(it.real());
  }
  static int remove(sqlite3_vfs* shim, const char* path, int sync_directory) {
    auto& vfs = *static_cast<FaultVfs*>(shim->pAppData);
    if (vfs._fails(SystemCall::Delete, path)) return code_of(vfs);
    vfs._before(path);
    std::error_code missing;
    const auto size = std::filesystem::file_size(path, missing);
    const int code = vfs._real->xDelete(vfs._real, path, sync_directory);
    const std::lock_guard guard(vfs._mutex);
    if (code != SQLITE_OK || missing) return code;
    if (vfs._room) *vfs._room += static_cast<std::int64_t>(size);
    if (vfs._names.erase(path) > 0)
      vfs._pending.push_back({FaultVfs::Change::Kind::Unname, 0, 0, path});
    return code;
  }
  static int read(sqlite3_file* raw, void* to, int amount, sqlite3_int64 offset) {
    return pass(raw, SystemCall::Read, code_of(raw), &sqlite3_io_methods::xRead, to, amount,
                offset);
  }
  static int write(sqlite3_file* raw, const void* from, int amount, sqlite3_int64 offset) {
    File& it = file(raw);
    const bool fails = it.vfs->_fails(SystemCall::Write, it.path);
    const std::int64_t growth = offset + amount - size_of(it.real());
    const bool full = !fails && growth > 0 && !it.vfs->_takes_room(growth, it.path);
    const int written = fails || full ? amount / 2 : amount;
    it.vfs->_before(it.path);
    it.vfs->_change(
        {FaultVfs::Change::Kind::Write, it.inode, offset,
         std::string(static_cast<const char*>(from), static_cast<std::size_t>(written))});
    const int code = it.real()->pMethods->xWrite(it.real(), from, written, offset);
    if (full) return SQLITE_FULL;
    return fails ? code_of(raw) : code;
  }
  static int truncate(sqlite3_file* raw, sqlite3_int64 size) {
    File& it = file(raw);
    if (it.vfs->_fails(SystemCall::Truncate, it.path)) return code_of(raw);
    it.vfs->_before(it.path);
    it.vfs->_change({FaultVfs::Change::Kind::Truncate, it.inode, size});
    it.vfs->_takes_room(size - size_of(it.real()), it.path);
    return it.real()->pMethods->xTruncate(it.real(), size);
  }
  static int sync(sqlite3_file* raw, int /*flags*/) {
    File& it = file(raw);
    it.vfs->_before(it.path);
    if (it.vfs->_fails(SystemCall::Sync, it.path)) return code_of(raw);
    it.vfs->_synced(it.inode);
    return SQLITE_OK;  // no real sync: what a loss of power takes is decided here
  }
  static int map_shared(sqlite3_file* raw, int page, int size, int extend, void volatile** to) {
    return pass(raw, SystemCall::MapShared, code_of(raw), &sqlite3_io_methods::xShmMap, page, size,
                extend, to);
  }
  static int lock_shared(sqlite3_file* raw, int offset, int count, int flags) {
    // SQLite does not look at the outcome of an unlock.
    if ((flags & SQLITE_SHM_UNLOCK) != 0)
      return file(raw).real()->pMethods->xShmLock(file(raw).real(), offset, count, flags);
    return pass(raw, SystemCall::LockShared, code_of(raw), &sqlite3_io_methods::xShmLock, offset,
                count, flags);
  }

  template <auto METHOD, typename... Arguments>
  static auto forward(sqlite3_file* raw, Arguments... arguments) {
    return (file(raw).real()->pMethods->*METHOD)(file(raw).real(), arguments...);
  }

  static const sqlite3_io_methods METHODS;

  static bool no_memory() {
    FaultVfs* const vfs = active;
    return vfs != nullptr && vfs->_fails(SystemCall::Memory, nullptr);
  }
  static void* allocate(int size) { return no_memory() ? nullptr : real_memory.xMalloc(size); }
  static void* reallocate(void* memory, int size) {
    return no_memory() ? nullptr : real_memory.xRealloc(memory, size);
  }

  /// Before main: SQLite takes another allocator only before its first use.
  static int install_allocator() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &real_memory);
    sqlite3_mem_methods faulty = real_memory;
    faulty.xMalloc = allocate;
    faulty.xRealloc = reallocate;
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &faulty);
  }
};

// Version 2: without the methods that map the database file, which would pass by `read`.
const sqlite3_io_methods FaultVfsCalls::METHODS = {
    2,
    close,
    read,
    write,
    truncate,
    sync,
    forward<&sqlite3_io_methods::xFileSize>,
    forward<&sqlite3_io_methods::xLock>,
    forward<&sqlite3_io_methods::xUnlock>,
    forward<&sqlite3_io_methods::xCheckReservedLock>,
    forward<&sqlite3_io_methods::xFileControl>,
    forward<&sqlite3_io_methods::xSectorSize>,
    forward<&sqlite3_io_methods::xDeviceCharacteristics>,
    map_shared,
    lock_shared,
    forward<&sqlite3_io_methods::xShmBarrier>,
    forward<&sqlite3_io_methods::xShmUnmap>,
    nullptr,
    nullptr};

namespace {
[[maybe_unused]] const int installed = FaultVfsCalls::install_allocator();
}  // namespace

FaultVfs::FaultVfs() : _real(sqlite3_vfs_find(nullptr)), _shim(*_real) {
  _shim.zName = "fault";
  _shim.pAppData = this;
  _shim.szOsFile = static_cast<int>(sizeof(File)) + _real->szOsFile;
  _shim.xOpen = FaultVfsCalls::open;
  _shim.xDelete = FaultVfsCalls::remove;
  sqlite3_vfs_register(&_shim, 1);
  active = this;
}

FaultVfs::~FaultVfs() {
  active = nullptr;
  sqlite3_vfs_unregister(&_shim);
  sqlite3_vfs_register(_real, 1);
}

void FaultVfs::fail_nth(int n, const Fault& fault) {
  const std::lock_guard guard(_mutex);
  _injected.clear();
  _calls_until_fault = n;
  _fault = fault;
}

void FaultVfs::leave_room(std::optional<std::int64_t> bytes) {
  const std::lock_guard guard(_mutex);
  _injected.clear();
  _room = bytes;
}

void FaultVfs::heal() {
  const std::lock_guard guard(_mutex);
  _fault.reset();
  _room.reset();
}

std::vector<std::string> FaultVfs::injected() const {
  const std::lock_guard guard(_mutex);
  return _injected;
}

int FaultVfs::open_files() const {
  const std::lock_guard guard(_mutex);
  return _open_files;
}

bool FaultVfs::_fails(SystemCall call, const char* path) {
  const std::lock_guard guard(_mutex);
  if (!_fault || _fault->call != call || --_calls_until_fault > 0) return false;
  if (_calls_until_fault < 0 && !_fault->lasting) return false;
  const std::string file =
      path != nullptr ? std::filesystem::path(path).filename().string() : "nameless";
  _injected.push_back(std::string(name_of(call)) + " " + file);
  return true;
}

bool FaultVfs::_takes_room(std::int64_t bytes, const char* path) {
  const std::lock_guard guard(_mutex);
  if (!_room) return true;
  if (bytes > *_room) {
    _injected.push_back(std::string("Full ") + (path != nullptr ? path : "nameless"));
    return false;
  }
  *_room -= bytes;
  return true;
}

void FaultVfs::watch_changes(std::function<void()> before_change) {
  const std::lock_guard guard(_mutex);
  _before_change = std::move(before_change);
  _names.clear();
  _durable = {};
  _pending.clear();
}

void FaultVfs::_before(const char* path) {
  std::function<void()> before_change;
  {
    const std::lock_guard guard(_mutex);
    before_change = _before_change;
  }
  if (before_change && path != nullptr) before_change();
}

void FaultVfs::_change(Change change) {
  if (change.inode == 0) return;
  const std::lock_guard guard(_mutex);
  _pending.push_back(std::move(change));
}

void FaultVfs::_synced(int inode) {
  if (inode == 0) return;
  const std::lock_guard guard(_mutex);
  std::set<int> settled = {inode};
  std::vector<Change> still_pending;  // from the last to the first
  for (auto change = _pending.rbegin(); change != _pending.rend(); ++change) {
    if (change->kind == Change::Kind::Truncate) settled.insert(change->inode);
    if (change->kind != Change::Kind::Write || settled.contains(change->inode)) continue;
    still_pending.push_back(*change);
    change->inode = 0;
  }
  for (const Change& change : _pending) {
    if (change.inode != 0 || change.kind == Change::Kind::Unname) _durable.apply(change);
  }
  _pending.assign(still_pending.rbegin(), still_pending.rend());
}

void FaultVfs::Disk::apply(const Change& change) {
  std::string& content = contents[change.inode];
  const auto offset = static_cast<std::size_t>(change.offset);
  switch (change.kind) {
    case Change::Kind::Name:
      names[change.bytes] = change.inode;
      break;
    case Change::Kind::Unname:
      names.erase(change.bytes);
      break;
    case Change::Kind::Truncate:
      content.resize(offset);
      break;
    case Change::Kind::Write:
      content.resize(std::max(content.size(), offset + change.bytes.size()));
      content.replace(offset, change.bytes.size(), change.bytes);
      break;
  }
}

void FaultVfs::save_as_after_power_loss(const std::filesystem::path& directory,
                                        std::mt19937& random) const {
  const std::lock_guard guard(_mutex);
  Disk disk = _durable;
  bool names_last = true;  // names come and go in order, up to some moment
  for (const Change& change : _pending) {
    const auto fate = random() % 3;  // there, missing, torn
    if (change.kind == Change::Kind::Name || change.kind == Change::Kind::Unname) {
      names_last = names_last && fate != 0;
      if (names_last) disk.apply(change);
    } else if (fate == 0) {
      disk.apply(change);
    } else if (fate == 1 && change.kind == Change::Kind::Write) {
      for (std::size_t from = 0; from < change.bytes.size(); from += SECTOR) {
        if (random() % 2 == 0) continue;
        disk.apply({Change::Kind::Write, change.inode,
                    change.offset + static_cast<std::int64_t>(from),
                    change.bytes.substr(from, SECTOR)});
      }
    }
  }
  for (const auto& [path, inode] : disk.names) {
    std::ofstream(directory / std::filesystem::path(path).filename(), std::ios::binary)
        << disk.contents[inode];
  }
}

}  // namespace veldra
