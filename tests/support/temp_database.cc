#include "support/temp_database.h"

#include <spdlog/fmt/fmt.h>

#include <vector>

namespace veldra {
namespace {

std::string rendered(const ValueView& value) {
  if (value.type() == StorageClass::Null) return "NULL";
  if (value.type() == StorageClass::Integer) return std::to_string(value.as_integer());
  if (value.type() == StorageClass::Real) return std::to_string(value.as_real());
  if (value.type() == StorageClass::Text) return std::string(value.as_text());
  std::string text = "x'";
  for (const std::byte byte : value.as_blob())
    text += fmt::format("{:02x}", std::to_integer<int>(byte));
  return text + "'";
}

std::string rendered(const std::vector<Row>& rows) {
  std::string text;
  for (const Row& row : rows) {
    text.append(text.empty() ? "" : "\n");
    for (std::size_t i = 0; i < row.size(); ++i)
      text.append(i == 0 ? "" : "|").append(rendered(row[i]));
  }
  return text;
}

}  // namespace

std::string dump(Database& db, std::string_view sql) {
  return rendered(db.fetchall(sql));
}

std::string dump(Connection& connection, std::string_view sql) {
  return rendered(connection.execute(sql).fetchall());
}

TempDatabase::TempDatabase(State state) : db(directory / "index.db") {
  if (state == State::Connected) db.connect();
  if (state == State::Ready) open(db);
}

void open(Database& db) {
  db.connect();
  db.create_schema();
  db.migrate_schema();
}

}  // namespace veldra
