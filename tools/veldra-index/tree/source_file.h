#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace veldra::tool {

/// The language of a file that ctags has no parser for.
inline constexpr std::string_view NO_LANGUAGE = "text";

/// Larger files are data, not source: they are recorded as an error and not read.
inline constexpr std::int64_t MAX_FILE_BYTES = 8 * 1024 * 1024;

/// A file of the tree, as `stat` sees it. `path` is relative to the root, with slashes.
struct SourcePath {
  std::string path;
  std::int64_t size = 0;
  std::int64_t mtime_ns = 0;
};

/// What an index pass records about a file that it could not use as it stands.
struct FileProblem {
  std::string type;  // "io_error", "decode_error", …
  std::string message;
  std::optional<std::int64_t> line;
};

/// A file's text, as UTF-8.
struct SourceText {
  enum class Kind { Text, Binary, Unusable };

  Kind kind = Kind::Unusable;
  std::string text;
  bool exact = true;  // the file's bytes unchanged; false when they were decoded, or had a mark
  std::int64_t size = 0;
  std::string stamp;                   // what `files.hash` holds, see below
  std::optional<FileProblem> problem;  // why it is unusable, or not exact
};

/// Reads a file once and says everything there is to know about its bytes.
///
/// Binary is what has a NUL byte among its first 8,000 and no mark of UTF-16. Text that is neither
/// UTF-8 nor marked as UTF-16 is read as Latin-1, with a problem "decode_error". Symbolic links are
/// not followed.
SourceText read_source(const std::filesystem::path& root, const SourcePath& source);

/// `files.hash`: the content's hash (XXH3 of 64 bits, which tells contents apart and resists
/// nobody) and, after a colon, the time of its last change in nanoseconds, so that an unchanged
/// file is known by its `stat`. A file that changed within the last two seconds before it was read
/// has time 0: it may change again within the same tick of the clock.
std::string make_stamp(std::string_view content, std::int64_t mtime_ns, std::int64_t now_ns);

/// The part before the colon: equal for equal contents.
std::string_view content_of_stamp(std::string_view stamp);

/// True when a file with this `stat` is the one that `stamp` and `size` were recorded for.
bool is_unchanged(std::string_view stamp, std::int64_t size, const SourcePath& source);

}  // namespace veldra::tool
