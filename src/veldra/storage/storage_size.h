#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// The page size, in bytes, that new files are made with.
inline constexpr std::int64_t PAGE_SIZE = 8192;

/// Rewrites the file behind `connection` with pages of `PAGE_SIZE` bytes, once: SQLite changes the
/// page size only outside WAL mode and by a VACUUM
/// (https://www.sqlite.org/pragma.html#pragma_page_size). Its auto-vacuum mode stays.
///
/// With a reason in `why_not`, or while another connection has the file open, the file stays as it
/// is. Whatever could not be done, going back to WAL mode included, is said in one WARNING; the
/// next open may try again. A crash at any moment leaves a file with every row, in rollback mode at
/// worst.
///
/// The caller holds the connection's lock, outside any transaction, and has closed its readers.
/// Throws the `Error` of a statement that failed for another reason (a full disk, say), after the
/// same WARNING with the error attached; the file then has its old pages.
void rewrite_pages(Connection& connection, const std::filesystem::path& db_path,
                   const std::optional<std::string>& why_not);

}  // namespace veldra
