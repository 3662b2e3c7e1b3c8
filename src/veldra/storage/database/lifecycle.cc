// Opening and closing: the writer connection, the pool of readers, how many of them.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/storage_size.h"
#include "veldra/utils/ascii.h"
#include "veldra/utils/path_filter.h"

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

/// The row with the journal mode that the file ended up in. Programs that open a new file at the
/// same moment make this fail at once, busy timeout or not: SQLite does not wait with a lock it
/// would have to raise (https://www.sqlite.org/c3ref/busy_handler.html).
std::optional<Row> enter_wal_mode(Connection& writer) {
  const auto deadline = std::chrono::steady_clock::now() + Connection::BUSY_TIMEOUT;
  while (true) {
    try {
      return writer.execute("PRAGMA journal_mode=WAL").fetchone();
    } catch (const OperationalError& error) {
      const bool busy = (error.code() & 0xff) == SQLITE_BUSY;
      if (!busy || std::chrono::steady_clock::now() > deadline) throw;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
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

Database::Database(std::filesystem::path path) : db_path(std::move(path)) {}

Database::~Database() = default;

void Database::connect() {
  std::error_code code;
  std::filesystem::create_directories(_directory_of(db_path), code);
  if (code) throw_os_error(code, "cannot create the directory", _directory_of(db_path));
  _closed = false;

  const auto writer = std::make_shared<Connection>(db_path);
  _connection.store(writer);
  // The page size first: SQLite ignores it once the file is in WAL mode. Auto-vacuum before the
  // first table.
  writer->execute("PRAGMA page_size=" + std::to_string(PAGE_SIZE));
  writer->execute("PRAGMA auto_vacuum=INCREMENTAL");
  const std::optional<Row> mode = enter_wal_mode(*writer);
  writer->execute("PRAGMA foreign_keys=ON");
  writer->execute("PRAGMA synchronous=NORMAL");
  register_path_functions(*writer);
  _readers.store(_open_readers(mode ? lower_case((*mode)[0].as_text()) : ""));
}

std::shared_ptr<ReaderPool> Database::_open_readers(std::string_view journal_mode) {
  const int count = reader_count();
  // Only in WAL mode do readers not wait for a write; a database in memory cannot be opened twice.
  if (count == 0 || journal_mode != "wal") return nullptr;
  return std::make_shared<ReaderPool>(db_path, count, register_path_functions);
}

void Database::close() {
  // Without the lock, so that writers need not wait for the queries that are running.
  if (const std::shared_ptr<ReaderPool> readers = _readers.load()) readers->close();
  const std::lock_guard guard(_lock);
  const std::shared_ptr<Connection> writer = _connection.load();
  if (!writer) return;
  writer->close();
  _connection.store(nullptr);
  _closed = true;
}

std::shared_ptr<Connection> Database::connection() const {
  if (std::shared_ptr<Connection> writer = _connection.load()) return writer;
  throw RuntimeError(_closed ? "Database is closed."
                             : "Database not connected. Call connect() first.");
}

std::filesystem::path _directory_of(const std::filesystem::path& db_path) {
  return db_path.has_parent_path() ? db_path.parent_path() : ".";
}

}  // namespace veldra
