#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/export.h"
#include "veldra/sqlite/value.h"

struct sqlite3_stmt;

namespace veldra {

/// The column names of a result, shared by its rows.
using ColumnNames = std::vector<std::string>;

/// A result row that owns its data: it outlives cursor, connection and database.
///
///     std::optional<Row> row = db.fetchone("SELECT path, size FROM files WHERE id = ?", {7});
///     std::string_view path = (*row)["path"].as_text();
///
/// One block of memory holds all its columns; the names are shared with the result's other rows.
/// Copyable and movable; a moved-from row has no columns.
///
/// Thread safety: like a standard container's.
/// Errors: `std::out_of_range` for a position or a name that does not exist.
class VELDRA_EXPORT Row {
 public:
  Row() noexcept = default;
  Row(const Row& other);
  Row& operator=(const Row& other);
  Row(Row&&) noexcept = default;
  Row& operator=(Row&&) noexcept = default;
  ~Row() = default;

  std::size_t size() const noexcept;
  ValueView operator[](std::size_t position) const;

  /// ASCII case is ignored; of several equal names the first counts.
  ValueView operator[](std::string_view name) const;
  const std::string& column_name(std::size_t position) const;

 private:
  friend class Cursor;
  friend class Query;

  struct Block;
  struct Free {
    void operator()(Block* block) const noexcept;
  };

  /// Copies the row that `statement` stands on. The caller keeps others off the connection.
  Row(sqlite3_stmt* statement, const std::shared_ptr<const ColumnNames>& names);
  [[noreturn]] void _refuse(std::size_t position) const;

  std::unique_ptr<Block, Free> _block;
};

}  // namespace veldra
