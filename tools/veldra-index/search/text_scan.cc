// The stored text, looked through slice by slice.
#include "veldra-index/search/text_scan.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "veldra/models/chunk.h"

namespace veldra::tool {
namespace {

/// So many that no thread waits long for the last one, and few of them are read in vain.
constexpr std::int64_t SLICES = 128;
/// How many slices may be ready before the first of them is looked at.
constexpr std::int64_t AHEAD = 8;

/// Row ids from `begin` on, `end` not included.
struct IdRange {
  std::int64_t begin, end;
};

/// The ranges of slice `number`: an equal share of all row ids, or those of a share of `files`.
std::vector<IdRange> ranges_of(std::int64_t number, std::int64_t end,
                               const std::optional<std::vector<std::int64_t>>& files) {
  const auto share = [number](std::int64_t whole) {
    return IdRange{whole * number / SLICES, whole * (number + 1) / SLICES};
  };
  if (!files) return {share(end)};
  std::vector<IdRange> ranges;
  const auto [first, behind] = share(std::ssize(*files));
  for (std::int64_t at = first; at < behind; ++at) {
    const std::int64_t id = (*files)[static_cast<std::size_t>(at)];
    ranges.push_back({id * CHUNKS_PER_FILE, (id + 1) * CHUNKS_PER_FILE});
  }
  return ranges;
}

/// The table that FTS5 keeps the texts in: it would copy each of them once more
/// (https://www.sqlite.org/fts5.html#fts5_data_structures).
constexpr std::string_view PIECES =
    "SELECT id, c1, c0 FROM code_chunks_content WHERE id >= ? AND id < ? ORDER BY id";

/// False when `visit` wants no more.
bool read_slice(ReadIndex& index, const TextScan& scan, const std::vector<IdRange>& ranges,
                const std::function<bool(const Row&)>& visit) {
  bool wants_more = true;
  for (const auto& [begin, end] : ranges) {
    if (!wants_more) break;
    index.fetcheach(PIECES, {begin, end}, [&](const Row& row) {
      wants_more = !scan.holds(row[2].as_text()) || visit(row);
      return wants_more;
    });
  }
  return wants_more;
}

/// The slices on their way from the threads that read them to the one that looks at them in order.
///
/// Thread safety: `_mutex` guards every field.
class Slices {
 public:
  struct Pieces {
    std::vector<Row> found;
    std::exception_ptr error;
  };

  /// The number of the next slice to read; none when there is no more to do. Waits while too many
  /// are ready.
  std::optional<std::int64_t> next() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _stopped || _given < _looked_at + AHEAD; });
    if (_stopped || _given == SLICES) return std::nullopt;
    return _given++;
  }

  void put(std::int64_t number, Pieces pieces) {
    const std::lock_guard lock(_mutex);
    _ready.resize(std::max(_ready.size(), static_cast<std::size_t>(number - _looked_at + 1)));
    _ready[static_cast<std::size_t>(number - _looked_at)] = std::move(pieces);
    _changed.notify_all();
  }

  Pieces take() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return !_ready.empty() && _ready.front(); });
    Pieces pieces = std::move(*_ready.front());
    _ready.pop_front();
    ++_looked_at;
    _changed.notify_all();
    return pieces;
  }

  void stop() {
    const std::lock_guard lock(_mutex);
    _stopped = true;
    _changed.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::optional<Pieces>> _ready;  // the first is number `_looked_at`
  std::int64_t _given = 0;
  std::int64_t _looked_at = 0;
  bool _stopped = false;
};

}  // namespace

void TextScan::run(ReadIndex& index, const std::function<bool(const Row&)>& visit) const {
  const auto last = index.fetchone("SELECT rowid FROM code_chunks ORDER BY rowid DESC LIMIT 1");
  if (!last) return;
  const std::int64_t end = (*last)[0].as_integer() + 1;
  auto readers = index.beside(static_cast<std::size_t>(std::max(threads, 1)));
  if (readers.empty()) {
    for (std::int64_t number = 0; number < SLICES; ++number)
      if (!read_slice(index, *this, ranges_of(number, end, files), visit)) return;
    return;
  }
  Slices slices;
  std::vector<std::jthread> running;
  struct Stop {  // on every path, before the threads are waited for
    Slices& slices;
    ~Stop() { slices.stop(); }
  } const stop{slices};
  for (const auto& reader : readers) {
    running.emplace_back([&, &connection = *reader] {
      while (const auto number = slices.next()) {
        Slices::Pieces pieces;
        try {
          read_slice(connection, *this, ranges_of(*number, end, files), [&](const Row& row) {
            pieces.found.push_back(row);
            return true;
          });
        } catch (...) {  // rethrown where the slice is taken
          pieces.error = std::current_exception();
        }
        slices.put(*number, std::move(pieces));
      }
    });
  }
  for (std::int64_t number = 0; number < SLICES; ++number) {
    const Slices::Pieces pieces = slices.take();
    if (pieces.error) std::rethrow_exception(pieces.error);
    for (const Row& row : pieces.found)
      if (!visit(row)) return;
  }
}

}  // namespace veldra::tool
