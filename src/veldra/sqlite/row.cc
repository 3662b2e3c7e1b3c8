// A result row in one block of memory: header, one cell and one type per column, then the bytes of
// its texts and blobs.
#include "veldra/sqlite/row.h"

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include "veldra/errors.h"
#include "veldra/utils/ascii.h"

namespace veldra {
namespace {

struct Bytes {
  std::uint32_t offset;
  std::uint32_t length;
};

union Cell {
  std::int64_t integer;
  double real;
  Bytes bytes;
};

/// A column of the statement as SQLite shows it, between measuring and copying.
struct Column {
  StorageClass type;
  Cell cell;
  const void* data;
};

/// Reads a column through one access to its value; safe because the caller holds the connection's
/// lock (https://www.sqlite.org/c3ref/value.html speaks of values that others may change).
void read_column(sqlite3_value* value, Column& column) {
  column.data = nullptr;
  switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
      column.type = StorageClass::Integer;
      column.cell.integer = sqlite3_value_int64(value);
      return;
    case SQLITE_FLOAT:
      column.type = StorageClass::Real;
      column.cell.real = sqlite3_value_double(value);
      return;
    case SQLITE_TEXT:
      column.type = StorageClass::Text;
      // Before the length: it may have to convert the text.
      column.data = sqlite3_value_text(value);
      break;
    case SQLITE_BLOB:
      column.type = StorageClass::Blob;
      column.data = sqlite3_value_blob(value);
      break;
    default:
      column.type = StorageClass::Null;
      column.cell.integer = 0;
      return;
  }
  const auto length = static_cast<std::uint32_t>(sqlite3_value_bytes(value));
  column.cell.bytes = {.offset = 0, .length = length};
  // An empty blob has no address; any other text or blob without one is one SQLite had no memory
  // for.
  if (column.data == nullptr && (column.type == StorageClass::Text || length > 0))
    throw_error(SQLITE_NOMEM, "out of memory");
}

}  // namespace

struct Row::Block {
  std::shared_ptr<const ColumnNames> names;
  std::size_t count;
  std::size_t size;  // of the whole block, in bytes

  static std::size_t head_size(std::size_t count) {
    return sizeof(Block) + count * (sizeof(Cell) + sizeof(StorageClass));
  }
  Cell* cells() { return reinterpret_cast<Cell*>(this + 1); }
  const Cell* cells() const { return reinterpret_cast<const Cell*>(this + 1); }
  StorageClass* types() { return reinterpret_cast<StorageClass*>(cells() + count); }
  const StorageClass* types() const {
    return reinterpret_cast<const StorageClass*>(cells() + count);
  }
  char* base() { return reinterpret_cast<char*>(this); }
  const char* base() const { return reinterpret_cast<const char*>(this); }
};

void Row::Free::operator()(Block* block) const noexcept {
  block->~Block();
  ::operator delete(block);
}

Row::Row(sqlite3_stmt* statement, const std::shared_ptr<const ColumnNames>& names) {
  const auto count = static_cast<std::size_t>(sqlite3_data_count(statement));
  static constexpr std::size_t USUAL_COLUMNS = 16;
  std::array<Column, USUAL_COLUMNS> usual;
  std::vector<Column> many(count > USUAL_COLUMNS ? count : 0);
  Column* const columns = many.empty() ? usual.data() : many.data();

  std::size_t size = Block::head_size(count);
  for (std::size_t i = 0; i < count; ++i) {
    read_column(sqlite3_column_value(statement, static_cast<int>(i)), columns[i]);
    if (columns[i].data == nullptr) continue;
    columns[i].cell.bytes.offset = static_cast<std::uint32_t>(size);
    size += columns[i].cell.bytes.length;
  }
  if (size > std::numeric_limits<std::uint32_t>::max())
    throw_error(SQLITE_TOOBIG, "the row is larger than 4 GiB: select fewer columns");

  auto* const block =
      new (::operator new(size)) Block{.names = names, .count = count, .size = size};
  _block.reset(block);
  Cell* const cells = block->cells();
  StorageClass* const types = block->types();
  for (std::size_t i = 0; i < count; ++i) {
    cells[i] = columns[i].cell;
    types[i] = columns[i].type;
    if (columns[i].data == nullptr) continue;
    const Bytes bytes = columns[i].cell.bytes;
    std::memcpy(block->base() + bytes.offset, columns[i].data, bytes.length);
  }
}

Row::Row(const Row& other) {
  if (!other._block) return;
  _block.reset(new (::operator new(other._block->size)) Block(*other._block));
  std::memcpy(_block->base() + sizeof(Block), other._block->base() + sizeof(Block),
              other._block->size - sizeof(Block));
}

Row& Row::operator=(const Row& other) {
  if (this != &other) *this = Row(other);
  return *this;
}

std::size_t Row::size() const noexcept {
  return _block ? _block->count : 0;
}

void Row::_refuse(std::size_t position) const {
  throw std::out_of_range("no column " + std::to_string(position) + " in a row of " +
                          std::to_string(size()));
}

ValueView Row::operator[](std::size_t position) const {
  if (position >= size()) _refuse(position);
  const Cell& cell = _block->cells()[position];
  const StorageClass type = _block->types()[position];
  switch (type) {
    case StorageClass::Integer:
      return ValueView(cell.integer);
    case StorageClass::Real:
      return ValueView(cell.real);
    case StorageClass::Text:
    case StorageClass::Blob:
      return {type, {_block->base() + cell.bytes.offset, cell.bytes.length}};
    case StorageClass::Null:
      break;
  }
  return {};
}

ValueView Row::operator[](std::string_view name) const {
  for (std::size_t i = 0; i < size(); ++i)
    if (equal_ignoring_case((*_block->names)[i], name)) return (*this)[i];
  throw std::out_of_range("no column named '" + std::string(name) + "'");
}

const std::string& Row::column_name(std::size_t position) const {
  if (position >= size()) _refuse(position);
  return (*_block->names)[position];
}

}  // namespace veldra
