// Finding, opening and locking an index.
#include "veldra-index/tree/index_place.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>

#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view INDEX_FOLDER = "memory/codebase-index";
constexpr std::string_view INDEX_NAME = "index.db";

fs::path with_suffix(fs::path path, std::string_view suffix) {
  path += suffix;
  return path;
}

std::string message_of(int error) {
  return std::generic_category().message(error);
}

/// What the holder of the lock wrote into it.
std::string holder(int fd) {
  std::array<char, 32> digits{};
  const ssize_t count = ::pread(fd, digits.data(), digits.size() - 1, 0);
  const std::string pid(digits.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  return pid.empty() ? "another process" : "process " + pid;
}

/// True for a database with tables of which none is an index's: opening it would add them.
bool is_foreign(const fs::path& db) {
  std::error_code error;
  if (!fs::exists(db, error)) return false;
  try {
    Connection connection(db, Connection::Mode::ReadOnly);
    const auto row =
        connection.execute("SELECT count(*), total(name = 'files') FROM sqlite_master").fetchone();
    return (*row)[0].as_integer() > 0 && (*row)[1].as_real() == 0;
  } catch (const Error&) {
    return false;  // the opening that follows says why
  }
}

bool is_same_file(int fd, const fs::path& path) {
  struct stat open_file {};
  struct stat named_file {};
  return ::fstat(fd, &open_file) == 0 && ::stat(path.c_str(), &named_file) == 0 &&
         open_file.st_ino == named_file.st_ino && open_file.st_dev == named_file.st_dev;
}

}  // namespace

fs::path IndexPlace::staging() const {
  return with_suffix(db, ".staging");
}
fs::path IndexPlace::lock() const {
  return with_suffix(db, ".lock");
}

bool IndexPlace::owns_folder(std::string_view path) const {
  return path == INDEX_FOLDER;
}

bool IndexPlace::owns(std::string_view path) const {
  if (path.starts_with(std::string(INDEX_FOLDER) + "/")) return true;
  const std::string full = (root / path).string();
  if (!full.starts_with(db.string())) return false;
  const std::string_view rest = std::string_view(full).substr(db.string().size());
  static constexpr std::string_view SUFFIXES[] = {"",         "-wal",     "-shm",
                                                  "-journal", ".staging", ".lock"};
  return std::find(std::begin(SUFFIXES), std::end(SUFFIXES), rest) != std::end(SUFFIXES);
}

IndexPlace find_index(const fs::path& directory, const std::optional<fs::path>& db) {
  std::error_code error;
  const fs::path root = fs::canonical(directory, error);
  if (error) {
    throw Failure(directory.string() + ": " + error.message() +
                  "; name the repository's directory");
  }
  if (!fs::is_directory(root, error)) {
    throw Failure(directory.string() + " is not a directory; name the repository's directory");
  }
  if (!db) return {root, root / INDEX_FOLDER / INDEX_NAME};
  if (fs::is_directory(*db, error)) {
    throw Failure(db->string() + " is a directory; --db names a file");
  }
  return {root, fs::weakly_canonical(fs::absolute(*db), error)};
}

OpenIndex::OpenIndex(const fs::path& db) : _database(std::make_unique<Database>(db)) {
  if (is_foreign(db)) {
    throw Failure(db.string() + " is another program's database; name another file with --db FILE");
  }
  _database->connect();
  _database->create_schema();
  _database->migrate_schema();
}

OpenIndex OpenIndex::existing(const IndexPlace& place) {
  std::error_code error;
  if (!fs::exists(place.db, error)) {
    throw Failure("no index here: run `veldra-index rebuild " + place.root.string() +
                  "` (looked for " + place.db.string() + ")");
  }
  return OpenIndex(place.db);
}

OpenIndex OpenIndex::existing_or_new(const IndexPlace& place) {
  return OpenIndex(place.db);
}

BuildLock::BuildLock(const IndexPlace& place) : _path(place.lock()) {
  std::error_code error;
  fs::create_directories(_path.parent_path(), error);
  for (;;) {
    _fd = ::open(_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (_fd < 0) {
      throw Failure("cannot write in " + _path.parent_path().string() + ": " + message_of(errno) +
                    "; name another place with --db FILE");
    }
    if (::flock(_fd, LOCK_EX | LOCK_NB) != 0) {
      const int reason = errno;
      const std::string who = holder(_fd);
      ::close(_fd);
      if (reason != EWOULDBLOCK)
        throw Failure("cannot lock " + _path.string() + ": " + message_of(reason));
      throw Failure(who + " is building this index; wait for it, or end it");
    }
    // Its last holder may have removed it between the opening and the lock.
    if (is_same_file(_fd, _path)) break;
    ::close(_fd);
  }
  const std::string pid = std::to_string(::getpid());
  if (::ftruncate(_fd, 0) != 0 || ::pwrite(_fd, pid.data(), pid.size(), 0) < 0) {
    // Only the message of whoever comes meanwhile is poorer.
  }
}

BuildLock::~BuildLock() {
  ::unlink(_path.c_str());
  ::close(_fd);
}

}  // namespace veldra::tool
