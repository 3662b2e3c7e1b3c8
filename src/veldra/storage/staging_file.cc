// Looking at a staging file before it is swapped in.
#include "veldra/storage/staging_file.h"

#include <sqlite3.h>

#include <algorithm>
#include <future>
#include <system_error>

#include "veldra/errors.h"
#include "veldra/sqlite/path_functions.h"
#include "veldra/storage/core_schema.h"

namespace veldra {
namespace {

/// In the pragma's unit: KiB, negative. The check looks every row up in every index, and with
/// SQLite's own 2 MiB half of its time goes into reading pages again.
constexpr std::string_view LARGE_CACHE = "PRAGMA cache_size=-16384";

constexpr std::string_view FULL_TEXT_CHECK =
    "INSERT INTO code_chunks (code_chunks) VALUES ('integrity-check')";

int primary(const Error& error) {
  return error.code() & 0xff;
}

// Not a read-only connection: one that closes last would leave a log beside the file.
void prepare(Connection& connection) {
  register_path_functions(connection);
  connection.execute(LARGE_CACHE);
}

/// What `look` finds damaged; none when the file is sound.
template <typename Look>
std::optional<std::string> damage_in(const Look& look) {
  try {
    return look();
  } catch (const Error& error) {
    if (primary(error) != SQLITE_CORRUPT) throw;
    return error.what();
  }
}

/// SQLite's first finding.
std::optional<std::string> finding_in_trees(Connection& connection) {
  const std::optional<Row> finding = connection.fetchone("PRAGMA integrity_check(1)");
  if ((*finding)[0].as_text() == "ok") return std::nullopt;
  return std::string((*finding)[0].as_text());
}

/// False when it could not be checked.
bool check_full_text(Connection& connection) {
  if (!connection.fetchone("SELECT 1 FROM sqlite_master WHERE name = 'code_chunks' AND sql = ?",
                           {CODE_CHUNKS_DDL}))
    return false;
  try {
    connection.execute(FULL_TEXT_CHECK);
    return true;
  } catch (const OperationalError& error) {
    // FTS5 takes its check for a write: of a file that nobody may write to the full-text index is
    // not checked, but made anew from the text.
    if (primary(error) != SQLITE_READONLY) throw;
    return false;
  }
}

bool all_keys_hold(Connection& connection) {
  try {
    return std::ranges::none_of(
        INDEX_KEYS, [&](const IndexKey& key) { return is_broken(connection, "main", key); });
  } catch (const OperationalError& error) {
    // It lacks a table or a column: the copying says which.
    if (error.code() != SQLITE_ERROR) throw;
    return false;
  }
}

/// What the second thread finds.
struct SecondLook {
  std::optional<std::string> damage;
  bool full_text_is_sound = false;
  bool keys_hold = false;
};

SecondLook look_at_full_text_and_keys(const std::filesystem::path& path) {
  Connection connection(path);
  prepare(connection);
  SecondLook found;
  found.damage = damage_in([&]() -> std::optional<std::string> {
    found.full_text_is_sound = check_full_text(connection);
    return std::nullopt;
  });
  if (!found.damage) found.keys_hold = all_keys_hold(connection);
  return found;
}

[[noreturn]] void refuse(const std::string& damage) {
  throw Error("the staging database is damaged: " + damage, SQLITE_CORRUPT);
}

}  // namespace

bool is_broken(Connection& connection, std::string_view schema, const IndexKey& key) {
  const std::string in(schema), column(key.column);
  // NULL is "not in" a set only when that is empty, so it is named.
  const std::string orphan = "SELECT 1 FROM " + in + "." + std::string(key.child) + " WHERE " +
                             column + " IS NOT NULL AND " + column + " NOT IN (SELECT id FROM " +
                             in + "." + std::string(key.parent) + ")";
  return connection.fetchone(orphan).has_value();
}

void look_for_staging_file(const std::filesystem::path& path) {
  std::error_code code;
  switch (std::filesystem::status(path, code).type()) {
    case std::filesystem::file_type::not_found:
      throw FileNotFoundError("Staging database not found: " + path.string());
    case std::filesystem::file_type::none:
      throw_os_error(code, "cannot look at the staging database", path);
    default:
      return;
  }
}

void refuse_wrong_staging_file(const std::filesystem::path& path,
                               const std::filesystem::path& live_path) {
  // SQLite would wait for ever on a pipe.
  std::error_code not_there;
  if (!std::filesystem::is_regular_file(path, not_there))
    throw OperationalError("unable to open database: " + plain_file_name(path), SQLITE_CANTOPEN);
  if (std::filesystem::equivalent(path, live_path, not_there))
    throw ProgrammingError("the staging database is the live index itself: " + path.string());
}

StagingFile::StagingFile(const std::filesystem::path& path, StagingTrust trust)
    : _connection(path), _path(path.string()), _trust(trust) {
  prepare(_connection);
  _seen_version = _version();
  if (_trust == StagingTrust::Vouched) {
    _full_text_is_sound = true;
    _keys_hold = all_keys_hold(_connection);
    return;
  }
  // Where no thread can be had, `get` does it.
  auto second = std::async(look_at_full_text_and_keys, path);
  const auto in_trees = damage_in([this] { return finding_in_trees(_connection); });
  if (in_trees) refuse(*in_trees);
  const SecondLook found = second.get();
  if (found.damage) refuse(*found.damage);
  _full_text_is_sound = found.full_text_is_sound;
  _keys_hold = found.keys_hold;
}

std::int64_t StagingFile::_version() {
  return (*_connection.fetchone("PRAGMA data_version"))[0].as_integer();
}

void StagingFile::confirm() {
  if (_version() == _seen_version) return;
  if (_trust == StagingTrust::Checked) {
    throw OperationalError(
        "the staging database was written to while it was checked: close it before the swap: " +
            _path,
        SQLITE_BUSY);
  }
  _keys_hold = false;
}

}  // namespace veldra
