#include "support/temp_database.h"

#include <cstdio>
#include <vector>

namespace veldra {
namespace {

std::string rendered(const ValueView& value) {
  switch (value.type()) {
    case StorageClass::Null:
      return "NULL";
    case StorageClass::Integer:
      return std::to_string(value.as_integer());
    case StorageClass::Real:
      return std::to_string(value.as_real());
    case StorageClass::Text:
      return std::string(value.as_text());
    case StorageClass::Blob:
      break;
  }
  std::string text = "x'";
  for (const std::byte byte : value.as_blob()) {
    static constexpr std::string_view digits = "0123456789abcdef";
    text.push_back(digits[std::to_integer<std::size_t>(byte >> 4)]);
    text.push_back(digits[std::to_integer<std::size_t>(byte & std::byte{15})]);
  }
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
