// Opening and closing: the writer connection, the pool of readers, how many of them.
#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "veldra/sqlite/path_functions.h"
#include "veldra/sqlite/pragma.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"
#include "veldra/storage/journal_mode.h"
#include "veldra/storage/storage_size.h"
#include "veldra/utils/ascii.h"

namespace veldra {
namespace {

/// The digits of a whole number without its sign and separators; none when `text` is no such
/// number.
std::optional<std::string> digits_of(std::string_view text) {
  std::string digits;
  bool after_digit = false;
  for (const char letter : text) {
    if (letter == '_' && after_digit) {
      after_digit = false;
    } else if (letter >= '0' && letter <= '9') {
      digits.push_back(letter);
      after_digit = true;
    } else {
      return std::nullopt;
    }
  }
  if (!after_digit) return std::nullopt;  // nothing at all, or a trailing separator
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
  return digits;
}

/// Incremental auto-vacuum for a file that has no page yet, and for one in full mode. On any other
/// the pragma would change nothing, and yet take the write lock and commit: nobody could open the
/// file while somebody writes, and every open would void the page caches of all.
void ask_for_incremental_auto_vacuum(Connection& writer) {
  const std::int64_t mode = pragma_value(writer, "auto_vacuum");
  if (mode == _AUTO_VACUUM_FULL ||
      (mode == _AUTO_VACUUM_NONE && pragma_value(writer, "page_count") == 0))
    writer.execute("PRAGMA auto_vacuum=INCREMENTAL");
}

}  // namespace

int reader_count() {
  const char* const set = std::getenv(_READERS_ENV);
  std::string_view text = trim(set != nullptr ? set : "");
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  const std::optional<std::string> digits = digits_of(text);
  if (!digits) return _DEFAULT_READERS;
  if (negative) return 0;
  if (digits->size() > 2) return _MAX_READERS;
  return std::min(std::stoi(*digits), _MAX_READERS);
}

Database::Database(std::filesystem::path path) : db_path(std::move(path)) {
  keep_logging_alive();
}

Database::~Database() = default;

void Database::connect() {
  CallersCode::refuse(*this, "connect");
  std::error_code code;
  std::filesystem::create_directories(_directory_of(db_path), code);
  if (code) throw_os_error(code, "cannot create the directory", _directory_of(db_path));
  _closed = false;

  const auto writer = std::make_shared<Connection>(db_path);
  _file.store(std::make_shared<IndexFile>(*writer, db_path));
  _connection.store(writer);
  // The page size first: SQLite ignores it once the file is in WAL mode. Auto-vacuum before the
  // first table.
  writer->execute("PRAGMA page_size=" + std::to_string(PAGE_SIZE));
  ask_for_incremental_auto_vacuum(*writer);
  const std::string journal_mode = enter_wal_mode(*writer);
  writer->execute("PRAGMA foreign_keys=ON");
  writer->execute("PRAGMA synchronous=NORMAL");
  writer->execute("PRAGMA journal_size_limit=" + std::to_string(_LOG_SIZE_LIMIT));
  register_path_functions(*writer);
  _readers.store(_open_readers(journal_mode));
}

std::shared_ptr<ReaderPool> Database::_open_readers(std::string_view journal_mode) {
  const int count = reader_count();
  // Only in WAL mode do readers not wait for a write; a database in memory cannot be opened twice.
  if (count == 0 || journal_mode != "wal") return nullptr;
  const std::shared_ptr<const IndexFile> file = _file.load();
  if (!file) return nullptr;
  return std::make_shared<ReaderPool>(file->path(), count, [file](Connection& reader) {
    file->require_in_place();
    register_path_functions(reader);
  });
}

void Database::close() {
  CallersCode::refuse(*this, "close");
  // Before anything is closed.
  if (const std::shared_ptr<Connection> writer = _connection.load()) writer->refuse_reentry();
  while (true) {
    const std::shared_ptr<ReaderPool> readers = _readers.load();
    // Without the lock, so that writers need not wait for the queries that are running.
    if (readers) readers->close();
    const Holding holding(*this, "close");
    if (_readers.load() != readers) continue;  // a page rewrite has opened another
    const std::shared_ptr<Connection> writer = _connection.load();
    if (!writer) return;
    writer->close();
    _connection.store(nullptr);
    _file.store(nullptr);
    _closed = true;
    return;
  }
}

void Database::_give_back_memory() {
  if (const std::shared_ptr<ReaderPool> readers = _readers.load()) readers->give_back_memory();
  if (!_lock.try_lock("giving memory back")) return;
  const std::lock_guard guard(_lock, std::adopt_lock);
  if (const std::shared_ptr<Connection> writer = _connection.load()) writer->release_memory();
}

bool Database::_file_is_in_place() const {
  const std::shared_ptr<const IndexFile> file = _file.load();
  return !file || file->is_in_place();
}

std::shared_ptr<Connection> Database::connection() const {
  if (std::shared_ptr<Connection> writer = _connection.load()) return writer;
  throw RuntimeError(_closed ? "Database is closed."
                             : "Database not connected. Call connect() first.");
}

std::shared_ptr<Connection> Database::_writer_in_place() const {
  std::shared_ptr<Connection> writer = connection();
  if (_tx_depth == 0) _file.load()->require_in_place();
  return writer;
}

std::filesystem::path _directory_of(const std::filesystem::path& db_path) {
  return db_path.has_parent_path() ? db_path.parent_path() : ".";
}

}  // namespace veldra
