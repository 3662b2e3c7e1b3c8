#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// The page size, in bytes, that new files are made with. Internal.
inline constexpr std::int64_t PAGE_SIZE = 8192;

/// What became of a rewrite, for a record that is written once the connection's lock is free.
struct PageRewriteOutcome {
  std::string left_undone;     ///< the WARNING's text; "" when all was done
  std::exception_ptr failure;  ///< the `Error` of the statement that failed, if one did
  std::string statement;       ///< that statement
};

/// Rewrites the file behind `connection` with pages of `PAGE_SIZE` bytes, once: SQLite changes the
/// page size only outside WAL mode and by a VACUUM
/// (https://www.sqlite.org/pragma.html#pragma_page_size). Its auto-vacuum mode stays.
///
/// With a reason in `why_not`, while another connection has the file open, and when a statement
/// fails (for want of room, say), the file keeps its old pages; the next open may try again. A
/// crash at any moment leaves a file with every row, in rollback mode at worst.
///
/// The caller holds the connection's lock, outside any transaction, and has closed its readers.
PageRewriteOutcome rewrite_pages(Connection& connection, const std::filesystem::path& db_path,
                                 const std::optional<std::string>& why_not);

}  // namespace veldra
