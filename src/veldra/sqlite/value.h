#pragma once

#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "veldra/export.h"

namespace veldra {

/// SQLite's storage classes (https://www.sqlite.org/datatype3.html#storage_classes_and_datatypes).
enum class StorageClass : unsigned char { Null, Integer, Real, Text, Blob };

using Blob = std::vector<std::byte>;

/// One value to bind to a placeholder; made implicitly from what C++ has.
///
///     db.execute("INSERT INTO files (path, size) VALUES (?, ?)", {"a.cc", 4096});
///
/// Nothing is converted silently: reading a value as another storage class than its own throws
/// `ProgrammingError` (the one widening is `as_real` of an Integer).
class VELDRA_EXPORT Value {
 public:
  Value() = default;
  Value(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): implicit by design, as all below

  /// An unsigned value above the signed 64-bit range is refused with `ProgrammingError`.
  template <std::integral T>
  Value(T value) : _data(_to_integer(value)) {}  // NOLINT(google-explicit-constructor)

  /// Not a number is refused with `ProgrammingError`: SQLite would store null.
  Value(float value) : Value(static_cast<double>(value)) {}  // NOLINT(google-explicit-constructor)
  Value(double value) : _data(value) {                       // NOLINT(google-explicit-constructor)
    if (std::isnan(value)) _refuse_not_a_number();
  }

  /// Text, embedded NUL bytes kept; bytes that are no UTF-8 pass through unchanged. A null pointer
  /// is Null.
  Value(const char* text);                                    // NOLINT(google-explicit-constructor)
  Value(std::string_view text) : _data(std::string(text)) {}  // NOLINT(google-explicit-constructor)
  Value(std::string text) : _data(std::move(text)) {}         // NOLINT(google-explicit-constructor)

  /// An empty blob stays a blob.
  Value(Blob blob) : _data(std::move(blob)) {}  // NOLINT(google-explicit-constructor)

  template <typename T>
  Value(const std::optional<T>& value) {  // NOLINT(google-explicit-constructor)
    if (value) *this = Value(*value);
  }

  Value(const Value& other);
  Value& operator=(const Value& other) { return *this = Value(other); }
  Value(Value&&) noexcept = default;
  Value& operator=(Value&&) noexcept = default;
  ~Value() = default;

  StorageClass type() const noexcept { return static_cast<StorageClass>(_data.index()); }
  bool is_null() const noexcept { return type() == StorageClass::Null; }
  std::int64_t as_integer() const;
  double as_real() const;
  std::string_view as_text() const;
  std::span<const std::byte> as_blob() const;

  friend bool operator==(const Value&, const Value&) = default;

 private:
  template <std::integral T>
  static std::int64_t _to_integer(T value) {
    if (!std::in_range<std::int64_t>(static_cast<_widest<T>>(value))) _refuse_out_of_range();
    return static_cast<std::int64_t>(value);
  }
  // std::in_range takes neither bool nor character types.
  template <std::integral T>
  using _widest = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
  [[noreturn]] static void _refuse_out_of_range();
  [[noreturn]] static void _refuse_not_a_number();

  // In the order of StorageClass.
  std::variant<std::monostate, std::int64_t, double, std::string, Blob> _data;
};

using Params = std::vector<Value>;
using ParamsList = std::vector<Params>;

/// One column of a result row, seen in place; valid as long as its row.
class VELDRA_EXPORT ValueView {
 public:
  ValueView() = default;
  explicit ValueView(std::int64_t value) : _type(StorageClass::Integer), _integer(value) {}
  explicit ValueView(double value) : _type(StorageClass::Real), _real(value) {}
  ValueView(StorageClass text_or_blob, std::string_view bytes)
      : _type(text_or_blob), _integer(0), _bytes(bytes) {}

  StorageClass type() const noexcept { return _type; }
  bool is_null() const noexcept { return _type == StorageClass::Null; }

  /// Each throws `ProgrammingError` when the column holds another storage class; `as_real` widens
  /// an Integer.
  std::int64_t as_integer() const {
    if (_type != StorageClass::Integer) _refuse("an integer");
    return _integer;
  }
  double as_real() const {
    if (_type == StorageClass::Integer) return static_cast<double>(_integer);
    if (_type != StorageClass::Real) _refuse("a number");
    return _real;
  }
  std::string_view as_text() const {
    if (_type != StorageClass::Text) _refuse("text");
    return _bytes;
  }
  std::span<const std::byte> as_blob() const {
    if (_type != StorageClass::Blob) _refuse("a blob");
    return std::as_bytes(std::span(_bytes));
  }

 private:
  [[noreturn]] void _refuse(std::string_view wanted) const;

  StorageClass _type = StorageClass::Null;
  union {
    std::int64_t _integer = 0;
    double _real;
  };
  std::string_view _bytes;
};

}  // namespace veldra
