// A row shows what SQLite stored, byte for byte, and owns it.
#include "veldra/sqlite/row.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "veldra/sqlite/connection.h"

namespace veldra {
namespace {

using namespace std::string_literals;

/// The value that a row shows, as one that can be compared.
Value copied(const ValueView& value) {
  switch (value.type()) {
    case StorageClass::Integer:
      return value.as_integer();
    case StorageClass::Real:
      return value.as_real();
    case StorageClass::Text:
      return value.as_text();
    case StorageClass::Blob:
      return Blob(value.as_blob().begin(), value.as_blob().end());
    case StorageClass::Null:
      break;
  }
  return nullptr;
}

TEST(RowTest, ValuesComeBackAsTheyWereBound) {
  Connection connection(":memory:");
  // A declared type of its own, which a converting wrapper would act on.
  connection.execute("CREATE TABLE t (v TIMESTAMP_AS_BLOB)");
  const Value values[] = {
      nullptr,
      std::numeric_limits<std::int64_t>::min(),
      std::numeric_limits<std::int64_t>::max(),
      3.0,
      -1.7976931348623157e308,
      "",
      "a\0b\0"s,
      "\xff\xfe\xc3("s,
      "2026-11-22 10:00:00",
      Blob{},
      Blob{std::byte{0}, std::byte{255}},
  };
  for (const Value& value : values) {
    connection.execute("DELETE FROM t");
    connection.execute("INSERT INTO t VALUES (?)", {value});
    EXPECT_EQ(copied((*connection.execute("SELECT v FROM t").fetchone())[0]), value);
    EXPECT_EQ(copied((*connection.execute("SELECT ?", {value}).fetchone())[0]), value);
  }
}

TEST(RowTest, NamesIgnoreAsciiCaseAndTheFirstOfEqualOnesCounts) {
  Connection connection(":memory:");
  const Row row = connection.execute("SELECT 1 AS Path, 2 AS PATH, 4 AS \"\xc3\x84\", 8 AS \"\"")
                      .fetchone()
                      .value();
  EXPECT_EQ(row["pATH"].as_integer(), 1);
  EXPECT_EQ(row["\xc3\x84"].as_integer(), 4);
  EXPECT_EQ(row[""].as_integer(), 8);
  EXPECT_THROW((void)row["\xc3\xa4"], std::out_of_range) << "case was ignored beyond ASCII";
  EXPECT_THROW((void)row["pat"], std::out_of_range);
  EXPECT_THROW((void)row[4], std::out_of_range);
  EXPECT_THROW((void)row.column_name(4), std::out_of_range);
  EXPECT_EQ(row.column_name(1), "PATH");
  EXPECT_EQ(row.size(), 4U);
}

TEST(RowTest, OutlivesItsConnectionAndItsCopies) {
  Row row;
  EXPECT_THROW((void)row[0], std::out_of_range) << "a row of nothing has a column";
  {
    Connection connection(":memory:");
    // More columns than a row usually has, of every storage class.
    row = *connection
               .execute(
                   "SELECT 'a' AS a, x'00', 1, 2.5, NULL, '', x'', 1, 2, 3, 4, 5, 6, 7, 8, 9,"
                   " 10, 11, ? AS last",
                   {std::string(70'000, 'z')})
               .fetchone();
  }
  std::optional<Row> copy = row;
  Row other = *copy;
  Row& same = other;
  other = same;
  copy.reset();
  const std::string_view view = other["last"].as_text();
  const Row moved = std::move(other);
  EXPECT_EQ(view.data(), moved["LAST"].as_text().data()) << "a view did not move with its row";
  for (const Row& each : {row, moved}) {
    EXPECT_EQ(each["last"].as_text(), std::string(70'000, 'z'));
    EXPECT_EQ(each[0].as_text(), "a");
    EXPECT_EQ(each[5].as_text(), "");
    EXPECT_EQ(each[6].as_blob().size(), 0U);
    EXPECT_EQ(each[17].as_integer(), 11);
  }
}

}  // namespace
}  // namespace veldra
