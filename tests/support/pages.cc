#include "support/pages.h"

#include <algorithm>
#include <fstream>
#include <string>

#include "veldra/sqlite/connection.h"

namespace veldra {

void make_pages(const std::filesystem::path& path, std::string_view mode, std::int64_t pages,
                std::int64_t free) {
  Connection connection(path);
  const auto pragma = [&](const std::string& name) {
    return (*connection.execute("PRAGMA " + name).fetchone())[0].as_integer();
  };
  connection.execute("PRAGMA page_size=" + std::to_string(PAGE_BYTES));
  connection.execute(mode == "NONE" ? "PRAGMA auto_vacuum=NONE" : "PRAGMA auto_vacuum=INCREMENTAL");
  connection.execute("PRAGMA journal_mode=WAL");
  connection.execute("CREATE TABLE filler (b BLOB)");
  // A row with so many pages of its own, besides a few bytes on the table's: a page of a large blob
  // holds four bytes less than its size.
  const auto insert = [&](std::int64_t own_pages) {
    connection.execute("INSERT INTO filler VALUES (zeroblob(?))",
                       {own_pages * (PAGE_BYTES - 4) + 30});
  };
  insert(0);
  insert(free);
  // Little by little: pointer maps come in between.
  while (const std::int64_t missing = pages - pragma("page_count"))
    insert(std::max<std::int64_t>(missing - missing / 64 - 1, 1));
  connection.execute("DELETE FROM filler WHERE rowid = 2");
  connection.close();
  if (mode != "FULL") return;
  // By hand: SQLite would release the free pages as it writes this field
  // (https://www.sqlite.org/fileformat2.html#incremental_vacuum_settings).
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(64);
  file.write("\0\0\0\0", 4);
}

}  // namespace veldra
