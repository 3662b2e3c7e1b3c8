#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "veldra-index/tree/index_place.h"
#include "veldra/sqlite/connection.h"

namespace veldra::tool {

/// An index that is only asked: one committed state, on a connection that can write nothing.
///
///     ReadIndex index(index_of(path, db));
///     for (const Row& row : index.fetchall("SELECT path FROM files")) use(row[0].as_text());
///
/// Neither a lock nor the right to write is needed: a rebuild of any length goes on beside it, and
/// so does a reader of a file on read-only media.
///
/// Thread safety: one thread at a time. Errors: those of `Connection`.
class ReadIndex {
 public:
  /// Throws `Failure` when there is no index ("run …"), when the file is another program's, and
  /// when it is of an older release and cannot be brought up to this one.
  explicit ReadIndex(IndexPlace place);

  std::optional<Row> fetchone(std::string_view sql, const Params& params = {});
  std::vector<Row> fetchall(std::string_view sql, const Params& params = {});

  /// Shows the rows one by one, until `visit` returns false; `visit` may ask the index as well.
  void fetcheach(std::string_view sql, const Params& params,
                 const std::function<bool(const Row&)>& visit);

  /// `count` more that see the very same state, each for a thread of its own. None at all where
  /// somebody has written meanwhile: then that state is this one's alone.
  std::vector<std::unique_ptr<ReadIndex>> beside(std::size_t count);

  const IndexPlace& place() const { return _place; }

 private:
  ReadIndex(IndexPlace place, std::optional<Connection::Mode> mode);

  /// Changes when another connection commits
  /// (https://www.sqlite.org/pragma.html#pragma_data_version).
  std::int64_t _version();
  void _begin();

  IndexPlace _place;
  Connection::Mode _mode;
  // Outside the transaction: sees every commit. It may write where the file can be written, and is
  // closed last, so that SQLite then removes the files beside the index.
  std::unique_ptr<Connection> _watch;
  std::unique_ptr<Connection> _connection;
  std::optional<std::int64_t> _begun_at;
};

}  // namespace veldra::tool
