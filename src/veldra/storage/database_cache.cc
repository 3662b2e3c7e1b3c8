// The table of open databases: who is asked for, who is held, who is closed.
#include "veldra/storage/database_cache.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <future>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "veldra/errors.h"
#include "veldra/platform/coarse_clock.h"

namespace veldra {
namespace {

using Held = std::shared_ptr<Database>;

using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes IDLE_TIME{1};

constexpr const char* CLOSED = "The database cache is closed.";

/// The name under which a file is known: absolute and without links.
std::filesystem::path resolved(const std::filesystem::path& db_path) {
  if (db_path == ":memory:")
    throw ProgrammingError("a database in memory belongs to one object: it cannot be cached");
  (void)plain_file_name(db_path);  // throws for a name that no file can have
  std::error_code code;
  std::filesystem::path path =
      std::filesystem::weakly_canonical(std::filesystem::absolute(db_path), code);
  if (code) throw_os_error(code, "cannot resolve", db_path);
  return path;
}

Held opened(const std::filesystem::path& path) {
  auto database = std::make_shared<Database>(path);
  database->connect();
  database->create_schema();
  database->migrate_schema();
  return database;
}

}  // namespace

class DatabaseCache::Table : public std::enable_shared_from_this<Table> {
 public:
  Table(std::size_t max_open, std::chrono::milliseconds idle_time)
      : _max_open(max_open), _idle_time(idle_time) {}

  Held open(const std::string& path);
  /// The next `open` of that path makes another object.
  void forget(const Database& database);
  /// Of a database that nobody has held for a while: of one, because it takes up to some ms.
  void give_back_memory();
  std::size_t size() const;
  void close();
  /// Forgets every file, because the cache goes; who holds one keeps it.
  void forget_all();

 private:
  /// What the holders of a database share; gives it back when the last of them lets go.
  struct Loan {
    std::shared_ptr<Table> table;
    Held database;
    Loan(std::shared_ptr<Table> to, Held what) : table(std::move(to)), database(std::move(what)) {}
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;
    ~Loan() { table->_take_back(*database); }
  };

  struct Entry {
    std::shared_future<Held> opening;  // valid while a thread opens the file
    Held database;                     // none until then
    std::weak_ptr<Loan> loan;          // none while nobody holds it
    std::uint64_t given_back = 0;      // the number of that return
    Clock::time_point idle_since;      // its time
    bool gave_memory_back = false;     // since then

    bool is_open() const { return database && !database->closed(); }
    bool is_idle() const { return is_open() && loan.expired(); }
  };
  using Entries = std::map<std::string, Entry, std::less<>>;

  Held _open(const std::string& path, std::promise<Held>& promise);
  Held _admit(const std::string& path, const Held& database);
  void _take_back(const Database& database) noexcept;
  // With `_mutex` held:
  Held _lend(Entry& entry);
  std::size_t _open_ones() const;
  std::vector<Held> _take_too_many();

  const std::size_t _max_open;
  const std::chrono::milliseconds _idle_time;
  mutable std::mutex _mutex;  // guards the rest
  Entries _entries;
  std::uint64_t _returns = 0;
  std::string _looked_at;  // the last whose memory was given back in this round; "" in none
  Clock::time_point _next_round;
  bool _closed = false;
};

Held DatabaseCache::Table::open(const std::string& path) {
  std::vector<Held> closing;  // a database closes when it is destroyed: after the lock
  std::promise<Held> promise;
  std::shared_future<Held> another_threads;
  {
    const std::lock_guard lock(_mutex);
    if (_closed) throw RuntimeError(CLOSED);
    Entry& entry = _entries[path];
    if (entry.is_open()) {
      Held held = _lend(entry);
      closing = _take_too_many();
      return held;
    }
    if (entry.opening.valid()) {
      another_threads = entry.opening;
    } else {
      entry.opening = promise.get_future().share();
      closing.push_back(std::move(entry.database));  // one that a holder has closed
      entry.loan.reset();
    }
  }
  return another_threads.valid() ? another_threads.get() : _open(path, promise);
}

Held DatabaseCache::Table::_open(const std::string& path, std::promise<Held>& promise) {
  try {
    Held held = _admit(path, opened(path));
    promise.set_value(held);
    return held;
  } catch (...) {
    {
      const std::lock_guard lock(_mutex);
      const auto entry = _entries.find(path);
      if (entry != _entries.end() && entry->second.opening.valid()) _entries.erase(entry);
    }
    promise.set_exception(std::current_exception());
    throw;
  }
}

Held DatabaseCache::Table::_admit(const std::string& path, const Held& database) {
  std::vector<Held> closing;
  const std::lock_guard lock(_mutex);
  if (_closed) throw RuntimeError(CLOSED);
  Entry& entry = _entries.at(path);
  entry.database = database;
  Held held = _lend(entry);
  closing = _take_too_many();
  entry.opening = {};
  return held;
}

Held DatabaseCache::Table::_lend(Entry& entry) {
  std::shared_ptr<Loan> loan = entry.loan.lock();
  if (!loan) {
    loan = std::make_shared<Loan>(shared_from_this(), entry.database);
    entry.loan = loan;
  }
  Database* const database = loan->database.get();
  return {std::move(loan), database};
}

void DatabaseCache::Table::_take_back(const Database& database) noexcept {
  const std::lock_guard lock(_mutex);
  const auto entry = _entries.find(database.db_path.native());
  if (entry == _entries.end() || entry->second.database.get() != &database) return;
  if (database.closed()) {  // by its holder
    _entries.erase(entry);
    return;
  }
  entry->second.given_back = ++_returns;
  entry->second.idle_since = coarse_now();
  entry->second.gave_memory_back = false;
}

std::vector<Held> DatabaseCache::Table::_take_too_many() {
  std::vector<Held> taken;
  if (_entries.size() <= _max_open) return taken;  // usually: nothing to count
  for (std::size_t open = _open_ones(); open > _max_open; --open) {
    const auto order = [](const Entries::value_type& it) {
      return it.second.is_idle() ? it.second.given_back : std::numeric_limits<std::uint64_t>::max();
    };
    const auto oldest = std::ranges::min_element(_entries, {}, order);
    if (order(*oldest) == std::numeric_limits<std::uint64_t>::max()) break;
    taken.push_back(oldest->second.database);
    _entries.erase(oldest);
  }
  return taken;
}

void DatabaseCache::Table::forget(const Database& database) {
  Held forgotten;  // closed, where nobody holds it, after the lock
  const std::lock_guard lock(_mutex);
  const auto entry = _entries.find(database.db_path.native());
  if (entry == _entries.end() || entry->second.database.get() != &database) return;
  forgotten = std::move(entry->second.database);
  _entries.erase(entry);
}

void DatabaseCache::Table::give_back_memory() {
  Held idle;
  {
    const std::lock_guard lock(_mutex);
    const Clock::time_point now = coarse_now();
    if (now < _next_round) return;
    const auto found =
        std::find_if(_entries.upper_bound(_looked_at), _entries.end(), [&](const auto& it) {
          const Entry& entry = it.second;
          return entry.is_idle() && !entry.gave_memory_back && now - entry.idle_since >= _idle_time;
        });
    if (found == _entries.end()) {
      _looked_at.clear();
      _next_round = now + _idle_time / 60;
      return;
    }
    _looked_at = found->first;
    found->second.gave_memory_back = true;
    idle = found->second.database;
  }
  idle->_give_back_memory();
}

std::size_t DatabaseCache::Table::size() const {
  const std::lock_guard lock(_mutex);
  return _open_ones();
}

std::size_t DatabaseCache::Table::_open_ones() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(_entries, [](const auto& it) { return it.second.is_open(); }));
}

void DatabaseCache::Table::close() {
  std::vector<Held> all;
  {
    const std::lock_guard lock(_mutex);
    for (const auto& [path, entry] : _entries)
      if (entry.database) all.push_back(entry.database);
    _closed = true;
    std::erase_if(_entries, [](const auto& it) { return it.second.database != nullptr; });
  }
  std::exception_ptr first;
  for (const Held& database : all) {
    try {
      database->close();
    } catch (const Error&) {
      if (!first) first = std::current_exception();
    }
  }
  if (first) std::rethrow_exception(first);
}

void DatabaseCache::Table::forget_all() {
  Entries entries;  // destroyed after the lock
  const std::lock_guard lock(_mutex);
  entries.swap(_entries);
}

DatabaseCache::DatabaseCache(std::size_t max_open) : DatabaseCache(max_open, IDLE_TIME) {}

DatabaseCache::DatabaseCache(std::size_t max_open, std::chrono::milliseconds idle_time) {
  if (max_open == 0) throw ProgrammingError("a cache of no databases: max_open must be 1 or more");
  _table = std::make_shared<Table>(max_open, idle_time);
}

DatabaseCache::~DatabaseCache() {
  _table->forget_all();
}

std::shared_ptr<Database> DatabaseCache::open(const std::filesystem::path& db_path) {
  const std::string path = resolved(db_path).native();
  Held database = _table->open(path);
  if (!database->_file_is_in_place()) {
    _table->forget(*database);
    database.reset();
    database = _table->open(path);
  }
  _table->give_back_memory();
  return database;
}

std::size_t DatabaseCache::size() const {
  return _table->size();
}

void DatabaseCache::close() {
  _table->close();
}

}  // namespace veldra
