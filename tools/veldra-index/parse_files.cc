// The threads of a pass: each reads files, has them parsed by its ctags and hands them on.
#include "veldra-index/parse_files.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "veldra-index/ctags.h"
#include "veldra-index/failure.h"
#include "veldra-index/interrupt.h"
#include "veldra-index/utf8.h"
#include "veldra/storage/database.h"

namespace veldra::tool {
namespace {

/// How much is parsed and not consumed at most.
constexpr std::size_t READY_BYTES = 24 * 1024 * 1024;
/// Requests that ctags has and has not answered: enough that it never waits for the next one.
constexpr std::size_t UNANSWERED_FILES = 8;
constexpr std::size_t UNANSWERED_BYTES = 2 * 1024 * 1024;

/// Parsed files on their way to the consumer; bounded.
///
/// Thread safety: any member, from any thread; `_mutex` guards every field.
class ReadyFiles {
 public:
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

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::unique_ptr<ParsedFile>> _files;
  std::size_t _bytes = 0;
  int _producers;
  bool _stopped = false;
  std::exception_ptr _error;
};

/// One thread's share of a pass.
class Worker {
 public:
  Worker(const std::filesystem::path& root, std::span<const PassFile> files,
         std::atomic<std::size_t>& next, ReadyFiles& ready)
      : _root(root), _files(files), _next(next), _ready(ready) {}

  void run() {
    for (;;) {
      check_interrupted();
      while (_unanswered.size() < UNANSWERED_FILES && _unanswered_bytes < UNANSWERED_BYTES) {
        const std::size_t position = _next++;
        if (position >= _files.size()) break;
        if (!_begin(position)) return;
      }
      if (_unanswered.empty()) return;
      if (!_finish_oldest()) return;
    }
  }

 private:
  /// Reads a file and sends it to ctags, or on when there is nothing to parse.
  bool _begin(std::size_t position) {
    const PassFile& pass_file = _files[position];
    auto file = std::make_unique<ParsedFile>();
    file->position = position;
    file->path = pass_file.source.path;
    if (find_invalid_utf8(file->path) != std::string_view::npos) {  // cannot be said in JSON
      file->problems.push_back(
          {"path_error", "the file's name is not UTF-8: rename it", std::nullopt});
      return _ready.put(std::move(file));
    }
    file->source = read_source(_root, pass_file.source);
    if (file->source.problem) file->problems.push_back(*file->source.problem);
    if (file->source.kind != SourceText::Kind::Text) return _ready.put(std::move(file));
    if (!pass_file.known_stamp.empty() &&
        content_of_stamp(pass_file.known_stamp) == content_of_stamp(file->source.stamp)) {
      file->same_content = true;
      return _ready.put(std::move(file));
    }
    if (!_ctags) _ctags.emplace(_root);
    _ctags->request(file->path);
    _unanswered_bytes += file->bytes();
    file->chunks = split_into_chunks(file->source.text, file->source.exact);
    file->lines = file->chunks.empty() ? 0 : file->chunks.back().end_line;
    _unanswered.push_back(std::move(file));
    return true;
  }

  bool _finish_oldest() {
    std::unique_ptr<ParsedFile> file = std::move(_unanswered.front());
    _unanswered.pop_front();
    _unanswered_bytes -= file->bytes();
    const bool complete = _ctags->read_reply(file->tags);
    if (!complete) {
      check_interrupted();  // it was killed, and this file is not to blame
      file->problems.push_back(
          {file->tags.empty() ? "parse_error" : std::string(PARTIAL_PARSE_ERROR),
           "ctags ended while it parsed this file", std::nullopt});
      _ctags.emplace(_root);
      for (const auto& waiting : _unanswered) _ctags->request(waiting->path);
    }
    read_tags(*file);
    return _ready.put(std::move(file));
  }

  const std::filesystem::path& _root;
  const std::span<const PassFile> _files;
  std::atomic<std::size_t>& _next;
  ReadyFiles& _ready;
  std::optional<CtagsProcess> _ctags;  // started for the first file that needs it
  std::deque<std::unique_ptr<ParsedFile>> _unanswered;
  std::size_t _unanswered_bytes = 0;
};

}  // namespace

void parse_files(const std::filesystem::path& root, std::span<const PassFile> files, int jobs,
                 const std::function<void(std::unique_ptr<ParsedFile>)>& consume) {
  const int count =
      std::clamp(static_cast<int>(std::min<std::size_t>(files.size(), 1024)), 0, jobs);
  std::atomic<std::size_t> next = 0;
  ReadyFiles ready(count);
  std::vector<std::jthread> threads;
  struct Stop {  // destroyed before the threads are joined, on every path
    ReadyFiles& ready;
    ~Stop() {
      ready.stop();
      ChildProcess::kill_all();  // wakes a thread that still waits for its ctags
    }
  } const stop{ready};
  for (int thread = 0; thread < count; ++thread) {
    threads.emplace_back([&] {
      std::exception_ptr error;
      try {
        Worker(root, files, next, ready).run();
      } catch (...) {  // rethrown on the calling thread
        error = std::current_exception();
      }
      ready.producer_done(std::move(error));
    });
  }
  while (std::unique_ptr<ParsedFile> file = ready.take()) consume(std::move(file));
  check_interrupted();
}

}  // namespace veldra::tool
