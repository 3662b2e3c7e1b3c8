#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "veldra/sqlite/connection.h"
#include "veldra/storage/database.h"

namespace veldra {

/// A foreign key among the index tables; every `parent` is referred to by its `id`.
struct IndexKey {
  std::string_view child;
  std::string_view column;
  std::string_view parent;
};

inline constexpr std::array<IndexKey, 5> INDEX_KEYS = {{
    {"files", "component_id", "components"},
    {"symbols", "file_id", "files"},
    {"edges", "source_id", "symbols"},
    {"edges", "target_id", "symbols"},
    {"external_imports", "file_id", "files"},
}};

/// True when a row of `key.child` in the file attached as `schema` has no parent.
bool is_broken(Connection& connection, std::string_view schema, const IndexKey& key);

/// Throws unless a file that can be a staging file is at the path: `FileNotFoundError` when nothing
/// is there, `OSError` when that cannot be told.
void look_for_staging_file(const std::filesystem::path& path);

/// Throws what SQLite would when the file is no regular one, and `ProgrammingError` when it is the
/// live index itself.
void refuse_wrong_staging_file(const std::filesystem::path& path,
                               const std::filesystem::path& live_path);

/// What can be known of a staging file before a swap takes any lock, read on connections of its
/// own: whether it is sound, and whether its foreign keys hold. Internal.
///
/// Lives until the swap's transaction reads the file, so that it can tell whether that is still
/// what was looked at.
///
/// Of a `Checked` file a second thread looks at the full text and the keys while SQLite checks the
/// trees. It has a connection of its own, shares nothing and ends before the constructor does. What
/// the first connection sees unchanged from before both looks until `confirm` is what both saw.
///
/// Thread safety: one thread at a time.
class StagingFile {
 public:
  /// Looks at the file. Of a `Checked` one that is not sound it throws `Error` "the staging
  /// database is damaged: …"; other errors of SQLite pass through.
  StagingFile(const std::filesystem::path& path, StagingTrust trust);

  /// True when no row lacks a parent, of the tables as the file declares them.
  bool keys_hold() const noexcept { return _keys_hold; }

  /// True when the index of the full-text table fits its text, or the caller vouches for it.
  bool full_text_is_sound() const noexcept { return _full_text_is_sound; }

  /// Throws `OperationalError` when another connection has written to a `Checked` file since it was
  /// looked at; nothing is known then of the keys of one that is vouched for.
  void confirm();

 private:
  std::int64_t _version();

  Connection _connection;
  std::string _path;
  StagingTrust _trust;
  std::int64_t _seen_version = 0;
  bool _keys_hold = false;
  bool _full_text_is_sound = false;
};

}  // namespace veldra
