#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>

#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

/// Parsed files on their way to the consumer; bounded by
/// `READY_BYTES`, which a single file may pass.
///
/// Thread safety: any member, from any thread; `_mutex` guards every field.
class ReadyFiles {
 public:
  static constexpr std::size_t READY_BYTES = 24 * 1024 * 1024;

  explicit ReadyFiles(int producers) : _producers(producers) {}

  /// Waits for room. False when the consumer wants no more.
  bool put(std::unique_ptr<ParsedFile> file) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _stopped || _bytes < READY_BYTES; });
    if (_stopped) return false;
    _bytes += file->bytes();
    _files.push_back(std::move(file));
    _changed.notify_all();
    return true;
  }

  /// Waits for the next file; none when all producers are done. Throws what one of them threw.
  std::unique_ptr<ParsedFile> take() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _error || !_files.empty() || _producers == 0; });
    if (_error) std::rethrow_exception(_error);
    if (_files.empty()) return nullptr;
    std::unique_ptr<ParsedFile> file = std::move(_files.front());
    _files.pop_front();
    _bytes -= file->bytes();
    _changed.notify_all();
    return file;
  }

  void producer_done(std::exception_ptr error) {
    const std::lock_guard lock(_mutex);
    --_producers;
    if (error && !_error) _error = std::move(error);
    _changed.notify_all();
  }

  /// The consumer wants no more.
  void stop() {
    const std::lock_guard lock(_mutex);
    _stopped = true;
    _changed.notify_all();
  }

  bool stopped() {
    const std::lock_guard lock(_mutex);
    return _stopped;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::unique_ptr<ParsedFile>> _files;
  std::size_t _bytes = 0;
  int _producers;
  bool _stopped = false;
  std::exception_ptr _error;
};

}  // namespace veldra::tool
