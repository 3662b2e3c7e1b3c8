// A value has the storage class of the type it was made from, and is read as no other.
#include "veldra/sqlite/value.h"

#include <gtest/gtest.h>

#include <limits>

#include "veldra/errors.h"
#include "veldra/sqlite/connection.h"

namespace veldra {
namespace {

using namespace std::string_literals;

TEST(ValueTest, HasTheStorageClassOfWhatItIsMadeFrom) {
  static constexpr auto LARGEST = std::numeric_limits<std::int64_t>::max();
  const std::tuple<Value, StorageClass, std::string_view> cases[] = {
      {true, StorageClass::Integer, "a truth value is no text and no pointer"},
      {'a', StorageClass::Integer, "a character is an integer type"},
      {static_cast<std::uint64_t>(LARGEST), StorageClass::Integer, "the largest that fits"},
      {2.0F, StorageClass::Real, "a whole float stays real"},
      {"a", StorageClass::Text, "a literal is text, not a truth value"},
      {static_cast<const char*>(nullptr), StorageClass::Null, "no text at all"},
      {Blob{}, StorageClass::Blob, "an empty blob stays a blob"},
      {std::optional<std::int64_t>(), StorageClass::Null, "nothing"},
      {std::optional<Blob>(Blob{}), StorageClass::Blob, "what the optional holds"},
  };
  for (const auto& [value, type, why] : cases) EXPECT_EQ(value.type(), type) << why;
  EXPECT_EQ(Value("a\0b"s).as_text(), "a\0b"s) << "cut at the NUL byte";
  EXPECT_THROW(Value(std::uint64_t{1} << 63), ProgrammingError);
  EXPECT_THROW(Value(std::optional(std::numeric_limits<std::uint64_t>::max())), ProgrammingError);
}

TEST(ValueTest, IsReadAsItsOwnStorageClassAlone) {
  Connection connection(":memory:");
  const Params values = {nullptr, 1, 1.5, "1", Blob(1)};
  const Row row = connection.execute("SELECT ?, ?, ?, ?, ?", values).fetchone().value();
  const auto readable_as = [](const auto& value) {
    const auto allows = [](const char* way, auto read) {
      try {
        read();
      } catch (const ProgrammingError&) {
        return "";
      }
      return way;
    };
    return std::string(allows("integer ", [&] { (void)value.as_integer(); })) +
           allows("real ", [&] { (void)value.as_real(); }) +
           allows("text ", [&] { (void)value.as_text(); }) +
           allows("blob ", [&] { (void)value.as_blob(); });
  };
  const char* const expected[] = {"", "integer real ", "real ", "text ", "blob "};
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(readable_as(values[i]), expected[i]);
    EXPECT_EQ(readable_as(row[i]), expected[i]) << "as a row shows it";
  }
}

}  // namespace
}  // namespace veldra
