// A row shows what SQLite stored, byte for byte, and owns it.
#include "veldra/sqlite/row.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "support/temp_database.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

using namespace std::string_literals;

TEST(RowTest, ValuesComeBackAsTheyWereBound) {
  Connection connection(":memory:");
  // A declared type of its own, which a converting wrapper would act on.
  connection.execute("CREATE TABLE t (v TIMESTAMP_AS_BLOB)");
  const std::pair<Value, std::string> cases[] = {
      {nullptr, "null|NULL"},
      {static_cast<const char*>(nullptr), "null|NULL"},
      {true, "integer|1"},
      {std::numeric_limits<std::int64_t>::min(), "integer|-9223372036854775808"},
      {3.0F, "real|3.000000"},
      {"", "text|"},
      {"a\0b\0"s, "text|a\0b\0"s},
      {"\xff\xfe\xc3("s, "text|\xff\xfe\xc3("},
      {"2026-11-22 10:00:00", "text|2026-11-22 10:00:00"},
      {std::optional<Blob>(Blob{}), "blob|x''"},
      {Blob{std::byte{0}, std::byte{255}}, "blob|x'00ff'"},
  };
  for (const auto& [value, shown] : cases) {
    connection.execute("DELETE FROM t");
    connection.execute("INSERT INTO t VALUES (?)", {value});
    EXPECT_EQ(dump(connection, "SELECT typeof(v), v FROM t"), shown);
  }
  EXPECT_THROW(Value(std::uint64_t{1} << 63), ProgrammingError);
  EXPECT_THROW(Value{std::numeric_limits<float>::quiet_NaN()}, ProgrammingError);
}

TEST(RowTest, AValueIsReadAsItsOwnStorageClassAlone) {
  const Row row =
      Connection(":memory:").execute("SELECT 1, 1.5, '1', x'31', NULL").fetchone().value();
  EXPECT_EQ(row[0].as_real(), 1.0) << "the one widening";
  EXPECT_THROW((void)row[0].as_text(), ProgrammingError);
  EXPECT_THROW((void)row[1].as_integer(), ProgrammingError);
  EXPECT_THROW((void)row[2].as_blob(), ProgrammingError);
  EXPECT_THROW((void)row[3].as_text(), ProgrammingError);
  EXPECT_THROW((void)row[4].as_real(), ProgrammingError);
  EXPECT_THROW((void)Value("1").as_integer(), ProgrammingError);
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
  EXPECT_THROW((void)row[4], std::out_of_range);
  EXPECT_EQ(row.column_name(1), "PATH");
}

TEST(RowTest, OutlivesItsConnectionAndItsCopies) {
  EXPECT_THROW((void)Row()[0], std::out_of_range) << "a row of nothing has a column";
  std::optional<Row> first =
      Connection(":memory:")
          .execute("SELECT 'a' AS a, x'', 1, 2.5, NULL, ? AS last", {std::string(70'000, 'z')})
          .fetchone();
  Row copy = *first;
  first.reset();
  const std::string_view view = copy["last"].as_text();
  const Row moved = std::move(copy);
  EXPECT_EQ(view.data(), moved["LAST"].as_text().data()) << "a view did not move with its row";
  EXPECT_EQ(view, std::string(70'000, 'z'));
  EXPECT_EQ(moved[0].as_text(), "a");
  EXPECT_EQ(moved[1].as_blob().size(), 0U);
  EXPECT_EQ(moved[2].as_integer(), 1);
}

}  // namespace
}  // namespace veldra
