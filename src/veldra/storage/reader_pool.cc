// Lending read connections: the bounded wait, the return, the end.
#include "veldra/storage/reader_pool.h"

#include <utility>

#include "veldra/errors.h"

namespace veldra {

ReaderPool::Lease::Lease(ReaderPool& pool, std::unique_ptr<Connection> connection) noexcept
    : _pool(&pool), _connection(std::move(connection)) {}

ReaderPool::Lease::~Lease() {
  if (_connection) _pool->_give_back(std::move(_connection));
}

ReaderPool::ReaderPool(std::filesystem::path path, int count, Configure configure)
    : _path(std::move(path)),
      _count(static_cast<std::size_t>(count)),
      _configure(std::move(configure)) {
  _idle.reserve(_count);
}

ReaderPool::Lease ReaderPool::lease(std::chrono::milliseconds patience) {
  std::unique_lock lock(_mutex);
  if (!_closed && (!_available() || !_waiting.empty())) _wait_for_a_turn(lock, patience);
  if (_closed) throw ReaderUnavailable("the reader pool is closed");
  ++_lent;
  if (_available()) _waiting.wake_first();  // two loans that ended at once woke the same thread
  if (_idle.empty()) {
    lock.unlock();
    return {*this, _open()};
  }
  std::unique_ptr<Connection> connection = std::move(_idle.back());
  _idle.pop_back();
  return {*this, std::move(connection)};
}

void ReaderPool::_wait_for_a_turn(std::unique_lock<std::mutex>& lock,
                                  std::chrono::milliseconds patience) {
  WaitLine::Place place(_waiting);
  const auto served = [&] { return _closed || (place.is_first() && _available()); };
  if (!place.wait_until(lock, std::chrono::steady_clock::now() + patience, served))
    throw ReaderUnavailable("every read connection is lent");
}

void ReaderPool::close() {
  const std::lock_guard closing(_closing);
  std::vector<std::unique_ptr<Connection>> idle;
  {
    std::unique_lock lock(_mutex);
    _closed = true;
    _waiting.wake_all();
    _all_back.wait(lock, [&] { return _lent == 0; });
    idle.swap(_idle);
  }
  for (const std::unique_ptr<Connection>& connection : idle) connection->close();
}

std::unique_ptr<Connection> ReaderPool::_open() {
  try {
    auto connection = std::make_unique<Connection>(_path, Connection::Mode::ReadOnly);
    if (_configure) _configure(*connection);
    return connection;
  } catch (...) {
    const std::lock_guard lock(_mutex);
    _loan_ended();
    throw;
  }
}

void ReaderPool::_give_back(std::unique_ptr<Connection> connection) noexcept {
  if (connection->damaged()) {
    connection.reset();
    const std::lock_guard lock(_mutex);
    _loan_ended();
    return;
  }
  const std::lock_guard lock(_mutex);
  _idle.push_back(std::move(connection));
  _loan_ended();
}

void ReaderPool::_loan_ended() noexcept {
  --_lent;
  _waiting.wake_first();
  if (_closed) _all_back.notify_all();
}

}  // namespace veldra
