#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "veldra-index/index/read_index.h"

namespace veldra::tool {

/// Whether what the index says of a file still holds: the files of an answer, looked at with
/// `stat`.
///
///     Freshness freshness(index);
///     std::erase_if(hits, [&](const Hit& hit) { return !freshness.has(hit.file, hit.line); });
///
/// A file that is not as it was indexed is read again, and then each line counts by itself. Where
/// the tree is not at hand at all (an index that was imported) everything holds.
class Freshness {
 public:
  explicit Freshness(ReadIndex& index) : _index(index) {}

  /// True when the file still has the line that the index knows under this number; without a
  /// number, when the file is there.
  bool has(const std::string& path, std::optional<std::int64_t> line);

  /// How many of the files looked at have changed, or are gone.
  std::int64_t changed() const { return _changed; }

 private:
  /// What became of a file; `lines` are those of one that has changed.
  struct File {
    enum class State { Same, Changed, Gone };
    State state = State::Same;
    std::vector<std::string> lines;
  };

  const File& _look_at(const std::string& path);
  File _compare(const std::string& path);
  bool _tree_is_here();
  std::optional<std::string> _indexed_line(const std::string& path, std::int64_t line);

  ReadIndex& _index;
  std::map<std::string, File> _files;
  std::optional<bool> _is_here;
  std::int64_t _changed = 0;
};

}  // namespace veldra::tool
