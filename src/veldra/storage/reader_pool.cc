// Lending read connections: the bounded wait, the return, the end.
#include "veldra/storage/reader_pool.h"

#include <algorithm>
#include <utility>

#include "veldra/errors.h"
#include "veldra/platform/coarse_clock.h"
#include "veldra/storage/limits.h"

namespace veldra {

ReaderPool::Lease::Lease(ReaderPool& pool, Reader& reader) noexcept
    : _pool(&pool), _reader(&reader) {}

ReaderPool::Lease::Lease(Lease&& other) noexcept
    : _pool(other._pool), _reader(std::exchange(other._reader, nullptr)) {}

ReaderPool::Lease::~Lease() {
  if (_reader != nullptr) _pool->_give_back(*_reader);
}

void ReaderPool::Lease::show(std::string_view sql) const {
  const std::lock_guard lock(_pool->_mutex);
  _reader->shown = sql;
  _reader->sql = _reader->shown;
}

ReaderPool::ReaderPool(std::filesystem::path path, int count, Configure configure,
                       std::chrono::milliseconds idle_time)
    : _path(std::move(path)),
      _configure(std::move(configure)),
      _idle_time(idle_time),
      _readers(static_cast<std::size_t>(count)) {
  _idle.reserve(_readers.size());
  for (Reader& reader : _readers) _idle.push_back(&reader);
}

ReaderPool::Lease ReaderPool::lease(std::chrono::milliseconds patience, std::string_view sql,
                                    const Deadline& deadline) {
  std::unique_lock lock(_mutex);
  if (!_closed && (_idle.empty() || !_waiting.empty())) _wait_for_a_turn(lock, patience, deadline);
  if (_closed) throw ReaderUnavailable("the reader pool is closed");
  Reader& reader = _lend(sql);
  if (!_idle.empty()) _waiting.wake_first();  // two loans that ended at once woke the same thread
  if (!reader.connection) {
    lock.unlock();
    _open(reader);
  }
  return {*this, reader};
}

ReaderPool::Reader& ReaderPool::_lend(std::string_view sql) noexcept {
  Reader& reader = *_idle.back();
  _idle.pop_back();
  reader.is_lent = true;
  reader.sql = sql;
  reader.lent_since = coarse_now();
  reader.loan = ++_loans;
  return reader;
}

void ReaderPool::_wait_for_a_turn(std::unique_lock<std::mutex>& lock,
                                  std::chrono::milliseconds patience, const Deadline& deadline) {
  WaitLine::Place place(_waiting);
  const auto served = [&] { return _closed || (place.is_first() && !_idle.empty()); };
  const auto patience_ends = Deadline::Clock::now() + patience;
  while (!place.wait_until(lock, std::min(patience_ends, deadline.next_look()), served)) {
    if (deadline.reached()) throw QueryInterrupted();
    if (Deadline::Clock::now() >= patience_ends)
      throw ReaderUnavailable("every read connection is lent");
  }
}

ReaderPool::Use ReaderPool::use() const {
  const std::lock_guard lock(_mutex);
  Use use;
  use.lent = static_cast<int>(_readers.size() - _idle.size());
  use.open = use.lent + static_cast<int>(std::ranges::count_if(_idle, [](const Reader* reader) {
               return reader->connection != nullptr;
             }));
  const Reader* oldest = nullptr;
  for (const Reader& reader : _readers)
    if (reader.is_lent && (oldest == nullptr || reader.loan < oldest->loan)) oldest = &reader;
  if (oldest == nullptr) return use;
  use.oldest = oldest->lent_since;
  use.oldest_sql = oldest->sql;
  return use;
}

void ReaderPool::give_back_memory() {
  std::unique_lock lock(_mutex);
  _close_unused(lock, std::chrono::milliseconds(0));
  if (_closed || _idle.empty() || !_idle.back()->connection) return;
  const Lease kept(*this, _lend({}));
  lock.unlock();
  kept->release_memory();
}

void ReaderPool::close() {
  const std::lock_guard closing(_closing);
  std::vector<std::unique_ptr<Connection>> connections;
  connections.reserve(_readers.size());
  {
    std::unique_lock lock(_mutex);
    _closed = true;
    _waiting.wake_all();
    _all_back.wait(lock, [&] { return _idle.size() == _readers.size(); });
    for (Reader& reader : _readers) connections.push_back(std::move(reader.connection));
  }
  for (const std::unique_ptr<Connection>& connection : connections)
    if (connection) connection->close();
}

void ReaderPool::_open(Reader& reader) {
  try {
    auto connection = std::make_unique<Connection>(_path, Connection::Mode::ReadOnly);
    if (_configure) _configure(*connection);
    reader.connection = std::move(connection);
  } catch (...) {
    const std::lock_guard lock(_mutex);
    _loan_ended(reader);
    throw;
  }
}

void ReaderPool::_give_back(Reader& reader) noexcept {
  if (reader.connection->damaged()) reader.connection.reset();
  std::unique_lock lock(_mutex);
  _loan_ended(reader);
  _close_unused(lock, _idle_time);
}

void ReaderPool::_loan_ended(Reader& reader) noexcept {
  reader.is_lent = false;
  reader.sql = {};
  _idle.insert(reader.connection ? _idle.end() : _idle.begin(), &reader);
  _waiting.wake_first();
  if (_closed) _all_back.notify_all();
}

void ReaderPool::_close_unused(std::unique_lock<std::mutex>& lock,
                               std::chrono::milliseconds idle_time) noexcept {
  while (Reader* const unused = _take_unused(idle_time)) {
    lock.unlock();
    unused->connection.reset();
    lock.lock();
    _loan_ended(*unused);
  }
}

/// Takes the connection that was returned longest ago out of the idle ones, as if it were lent:
/// `close` waits until it is closed.
ReaderPool::Reader* ReaderPool::_take_unused(std::chrono::milliseconds idle_time) noexcept {
  // At least two are idle: one stays. Asked at every return, so the clock comes last.
  if (_closed || _idle.size() < 2 || !_idle[_idle.size() - 2]->connection) return nullptr;
  const auto first = std::ranges::find_if(
      _idle, [](const Reader* reader) { return reader->connection != nullptr; });
  Reader* const reader = *first;
  if (coarse_now() - reader->lent_since < idle_time) return nullptr;
  _idle.erase(first);
  return reader;
}

}  // namespace veldra
