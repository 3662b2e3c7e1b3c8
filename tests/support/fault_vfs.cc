#include "support/fault_vfs.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <new>
#include <utility>

namespace veldra {
namespace {

constexpr std::size_t SECTOR = 512;

std::atomic<FaultVfs*> active = nullptr;
sqlite3_mem_methods real_memory;

/// One open file of SQLite's, in memory that SQLite provides; the real file's follows.
struct File : sqlite3_file {
  const char* path;  // SQLite keeps it until the file is closed; none for a temporary file

  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

}  // namespace

/// SQLite's callbacks.
struct FaultVfsCalls {
  static File& file(sqlite3_file* raw) { return *static_cast<File*>(raw); }

  template <auto METHOD, typename... Arguments>
  static auto forward(sqlite3_file* raw, Arguments... arguments) {
    sqlite3_file* const real = file(raw).real();
    return (real->pMethods->*METHOD)(real, arguments...);
  }

  template <SystemCall CALL, auto METHOD, typename... Arguments>
  static int forward_or_fail(sqlite3_file* raw, Arguments... arguments) {
    const int failure = active.load()->_outcome(CALL, file(raw).path);
    return failure != SQLITE_OK ? failure : forward<METHOD>(raw, arguments...);
  }

  static int open(sqlite3_vfs*, const char* path, sqlite3_file* raw, int flags, int* out) {
    FaultVfs& vfs = *active;
    File& it = *new (raw) File{{nullptr}, path};
    const int failure = vfs._outcome(SystemCall::Open, path);
    if (failure != SQLITE_OK) return failure;
    const int code = vfs._real->xOpen(vfs._real, path, it.real(), flags, out);
    if (it.real()->pMethods != nullptr) {
      it.pMethods = &METHODS;
      ++vfs._open_files;
    }
    return code;
  }
  static int close(sqlite3_file* raw) {
    --active.load()->_open_files;
    return forward<&sqlite3_io_methods::xClose>(raw);
  }
  static int remove(sqlite3_vfs*, const char* path, int sync_directory) {
    FaultVfs& vfs = *active;
    const int failure = vfs._outcome(SystemCall::Delete, path);
    if (failure != SQLITE_OK) return failure;
    vfs._change(SystemCall::Delete, path);
    return vfs._real->xDelete(vfs._real, path, sync_directory);
  }
  static int write(sqlite3_file* raw, const void* from, int amount, sqlite3_int64 offset) {
    FaultVfs& vfs = *active;
    sqlite3_int64 size = 0;
    forward<&sqlite3_io_methods::xFileSize>(raw, &size);
    const int failure = vfs._outcome(SystemCall::Write, file(raw).path, offset + amount - size);
    const int written = failure != SQLITE_OK ? amount / 2 : amount;
    vfs._change(SystemCall::Write, file(raw).path, offset,
                {static_cast<const char*>(from), static_cast<std::size_t>(written)});
    const int code = forward<&sqlite3_io_methods::xWrite>(raw, from, written, offset);
    return failure != SQLITE_OK ? failure : code;
  }
  static int truncate(sqlite3_file* raw, sqlite3_int64 size) {
    const int failure = active.load()->_outcome(SystemCall::Truncate, file(raw).path);
    if (failure != SQLITE_OK) return failure;
    active.load()->_change(SystemCall::Truncate, file(raw).path, size);
    return forward<&sqlite3_io_methods::xTruncate>(raw, size);
  }
  static int sync(sqlite3_file* raw, int /*flags*/) {
    const int failure = active.load()->_outcome(SystemCall::Sync, file(raw).path);
    if (failure == SQLITE_OK) active.load()->_change(SystemCall::Sync, file(raw).path);
    return failure;  // no real sync: what a loss of power takes is decided here
  }
  static void call_once(std::function<void()>& then) {
    if (then) std::exchange(then, nullptr)();
  }
  static int lock_shared(sqlite3_file* raw, int offset, int count, int flags) {
    constexpr auto METHOD = &sqlite3_io_methods::xShmLock;
    constexpr int CHECKPOINT = 1;  // https://www.sqlite.org/walformat.html#wal_locks
    if (offset == CHECKPOINT && count == 1 && flags == (SQLITE_SHM_LOCK | SQLITE_SHM_EXCLUSIVE))
      call_once(active.load()->_before_checkpoint);
    // SQLite does not look at the outcome of an unlock.
    if ((flags & SQLITE_SHM_UNLOCK) != 0) return forward<METHOD>(raw, offset, count, flags);
    return forward_or_fail<SystemCall::LockShared, METHOD>(raw, offset, count, flags);
  }

  /// Nothing is mapped: it would pass by `xRead`.
  static int fetch(sqlite3_file*, sqlite3_int64, int, void** mapped) {
    *mapped = nullptr;
    return SQLITE_OK;
  }
  /// Without a mapping SQLite calls this between reading a changed header of the log and using it.
  static int unfetch(sqlite3_file*, sqlite3_int64, void*) {
    call_once(active.load()->_after_log_header);
    return SQLITE_OK;
  }

  static const sqlite3_io_methods METHODS;

  static bool no_memory() {
    FaultVfs* const vfs = active;
    return vfs != nullptr && vfs->_outcome(SystemCall::Memory, nullptr) != SQLITE_OK;
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

const sqlite3_io_methods FaultVfsCalls::METHODS = {
    3,
    close,
    forward_or_fail<SystemCall::Read, &sqlite3_io_methods::xRead>,
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
    forward_or_fail<SystemCall::MapShared, &sqlite3_io_methods::xShmMap>,
    lock_shared,
    forward<&sqlite3_io_methods::xShmBarrier>,
    forward<&sqlite3_io_methods::xShmUnmap>,
    fetch,
    unfetch};

namespace {
[[maybe_unused]] const int installed = FaultVfsCalls::install_allocator();
}  // namespace

FaultVfs::FaultVfs() : _real(sqlite3_vfs_find(nullptr)), _shim(*_real) {
  _shim.zName = "fault";
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

void FaultVfs::leave_room(std::int64_t bytes) {
  const std::lock_guard guard(_mutex);
  _injected.clear();
  _room = bytes;
}

void FaultVfs::heal() {
  const std::lock_guard guard(_mutex);
  _fault.reset();
  _room.reset();
}

std::string FaultVfs::injected() const {
  const std::lock_guard guard(_mutex);
  return _injected;
}

int FaultVfs::_outcome(SystemCall call, const char* path, std::int64_t growth) {
  const std::lock_guard guard(_mutex);
  int failure = SQLITE_OK;
  if (_fault && _fault->call == call) {
    --_calls_until_fault;
    if (_calls_until_fault == 0 || (_calls_until_fault < 0 && _fault->lasting))
      failure = _fault->code;
  }
  if (_room && growth > 0) {
    if (growth > *_room)
      failure = SQLITE_FULL;
    else
      *_room -= growth;
  }
  if (failure != SQLITE_OK && _injected.empty())
    _injected = path != nullptr ? std::filesystem::path(path).filename().string() : "no named file";
  return failure;
}

void FaultVfs::watch_changes(const std::filesystem::path& directory,
                             std::function<void()> before_change) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    std::ifstream file(entry.path(), std::ios::binary);
    _durable[entry.path().filename()] = std::string(std::istreambuf_iterator(file), {});
  }
  _before_change = std::move(before_change);
}

void FaultVfs::_change(SystemCall call, const char* path, std::int64_t offset,
                       std::string_view bytes) {
  if (!_before_change || path == nullptr) return;
  _before_change();
  const std::lock_guard guard(_mutex);
  const Change change{call, std::filesystem::path(path).filename(), offset, std::string(bytes)};
  if (call != SystemCall::Sync) return _pending.push_back(change);
  // A sync brings to the disk what was written to its file, and the last removal or truncation with
  // all that came before it.
  const auto is_no_write = [](const Change& it) { return it.call != SystemCall::Write; };
  auto settled = std::find_if(_pending.rbegin(), _pending.rend(), is_no_write).base();
  settled = std::stable_partition(settled, _pending.end(),
                                  [&](const Change& it) { return it.file == change.file; });
  for (auto it = _pending.begin(); it != settled; ++it) _apply(*it, _durable);
  _pending.erase(_pending.begin(), settled);
}

void FaultVfs::_apply(const Change& change, Contents& files) {
  if (change.call == SystemCall::Delete) {
    files.erase(change.file);
    return;
  }
  std::string& content = files[change.file];
  const auto offset = static_cast<std::size_t>(change.offset);
  if (change.call == SystemCall::Truncate) {
    content.resize(offset);
  } else {
    content.resize(std::max(content.size(), offset + change.bytes.size()));
    content.replace(offset, change.bytes.size(), change.bytes);
  }
}

void FaultVfs::save_as_after_power_loss(const std::filesystem::path& directory,
                                        std::mt19937& random) const {
  const std::lock_guard guard(_mutex);
  Contents files = _durable;
  for (const Change& change : _pending) {
    const auto fate = random() % 3;  // missing, there, torn
    if (change.call != SystemCall::Write && fate == 0) break;
    if (fate == 1 || change.call != SystemCall::Write) _apply(change, files);
    if (fate != 2) continue;
    for (std::size_t from = 0; from < change.bytes.size(); from += SECTOR) {
      if (random() % 2 == 0) continue;
      _apply({SystemCall::Write, change.file, change.offset + static_cast<std::int64_t>(from),
              change.bytes.substr(from, SECTOR)},
             files);
    }
  }
  for (const auto& [name, content] : files)
    std::ofstream(directory / name, std::ios::binary) << content;
}

}  // namespace veldra
