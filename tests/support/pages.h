#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// The page size of the files below: small, so that many pages are made quickly.
inline constexpr std::int64_t PAGE_BYTES = 512;

/// Makes a file in WAL mode with the auto-vacuum mode `mode`, of `pages` pages in all, of which
/// exactly `free` are on the free list, with a table `filler (b BLOB)` that has a few
/// rows, 1 among them.
inline void make_pages(const std::filesystem::path& path, std::string_view mode, std::int64_t pages,
                       std::int64_t free) {
  Connection connection(path);
  const auto pragma = [&](const std::string& name) {
    return (*connection.execute("PRAGMA " + name).fetchone())[0].as_integer();
  };
  connection.execute("PRAGMA page_size=" + std::to_string(PAGE_BYTES));
  connection.execute("PRAGMA auto_vacuum=" + std::string(mode));
  connection.execute("PRAGMA journal_mode=WAL");
  connection.execute("CREATE TABLE filler (b BLOB)");
  connection.execute("CREATE TABLE freed (b BLOB)");
  // A row with so many pages of its own, besides a few bytes on the table's: a page of a large blob
  // holds four bytes less than its size.
  const auto insert = [&](const std::string& table, std::int64_t own_pages) {
    connection.execute("INSERT INTO " + table + " VALUES (zeroblob(?))",
                       {own_pages * (PAGE_BYTES - 4) + 30});
  };
  insert("filler", 0);
  insert("freed", free - 1);  // and the table's own
  // Little by little: pointer maps come in between.
  while (const std::int64_t missing = pages - pragma("page_count"))
    insert("filler", std::max<std::int64_t>(missing - missing / 64 - 1, 1));
  connection.execute("DROP TABLE freed");
}

}  // namespace veldra
