// One state of an index, for questions.
#include "veldra-index/index/read_index.h"

#include <unistd.h>

#include <system_error>
#include <utility>

#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra/sqlite/path_functions.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view FIRST_READ = "SELECT 1 FROM sqlite_master";

std::unique_ptr<Connection> open(const fs::path& db, Connection::Mode mode) {
  auto connection = std::make_unique<Connection>(db, mode);
  register_path_functions(*connection);
  return connection;
}

/// A file in WAL mode is read with two files beside it. Where none can be made, on read-only media
/// or in somebody else's folder, and nobody has made them, nobody writes either.
Connection::Mode mode_for(const fs::path& db) {
  try {
    open(db, Connection::Mode::ReadOnly)->fetchone(FIRST_READ);
    return Connection::Mode::ReadOnly;
  } catch (const Error&) {
    std::error_code error;
    fs::path log = db;
    log += "-wal";
    if (::access(db.parent_path().c_str(), W_OK) == 0 || fs::exists(log, error)) throw;
    return Connection::Mode::Immutable;
  }
}

}  // namespace

ReadIndex::ReadIndex(IndexPlace place, std::optional<Connection::Mode> mode)
    : _place(std::move(place)),
      _mode(mode ? *mode : (check_is_index(_place), mode_for(_place.db))),
      _connection(open(_place.db, _mode)) {}

ReadIndex::ReadIndex(IndexPlace place) : ReadIndex(std::move(place), std::nullopt) {
  if (release_of(*_connection) == Release::Older) {
    _connection->close();
    OpenIndex::existing(_place);  // brings it up to this release
    _connection = open(_place.db, _mode);
  }
  const bool writable =
      _mode == Connection::Mode::ReadOnly && ::access(_place.db.c_str(), W_OK) == 0;
  _watch = open(_place.db, writable ? Connection::Mode::ReadWrite : _mode);
  do {
    if (_begun_at) _connection->execute("ROLLBACK");
    _begun_at = _version();
    _begin();
  } while (_version() != _begun_at);
}

std::optional<Row> ReadIndex::fetchone(std::string_view sql, const Params& params) {
  return _connection->fetchone(sql, params);
}

std::vector<Row> ReadIndex::fetchall(std::string_view sql, const Params& params) {
  return _connection->fetchall(sql, params);
}

void ReadIndex::fetcheach(std::string_view sql, const Params& params,
                          const std::function<bool(const Row&)>& visit) {
  _connection->fetcheach(sql, params, visit, {});
}

std::vector<std::unique_ptr<ReadIndex>> ReadIndex::beside(std::size_t count) {
  std::vector<std::unique_ptr<ReadIndex>> others;
  for (std::size_t at = 0; at < count; ++at) {
    others.push_back(std::unique_ptr<ReadIndex>(new ReadIndex(_place, _mode)));
    others.back()->_begin();
  }
  if (_version() != _begun_at) others.clear();
  return others;
}

void ReadIndex::_begin() {
  _connection->execute("BEGIN");
  _connection->fetchone(FIRST_READ);  // the state is that of the first read
}

std::int64_t ReadIndex::_version() {
  return (*_watch->fetchone("PRAGMA data_version"))[0].as_integer();
}

}  // namespace veldra::tool
