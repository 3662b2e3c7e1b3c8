// Reading values as their own storage class, and refusing to read them as another.
#include "veldra/sqlite/value.h"

#include <array>

#include "veldra/errors.h"

namespace veldra {
namespace {

[[noreturn]] void refuse(StorageClass actual, std::string_view wanted) {
  static constexpr std::array<std::string_view, 5> NAMES = {"null", "an integer", "a real", "text",
                                                            "a blob"};
  std::string message("the value is ");
  message.append(NAMES[static_cast<std::size_t>(actual)]).append(", not ").append(wanted);
  throw ProgrammingError(std::move(message));
}

}  // namespace

Value::Value(const char* text) {
  if (text != nullptr) _data = std::string(text);
}

void Value::_refuse_out_of_range() {
  throw ProgrammingError(
      "an unsigned value above 9223372036854775807 does not fit a 64-bit signed integer");
}

void Value::_refuse_not_a_number() {
  throw ProgrammingError("SQLite cannot store a NaN: bind null where there is no number");
}

// Copied first, then moved in: when memory runs out in the midst of std::variant's own copy,
// libstdc++ 12 destroys a text that was never made.
Value::Value(const Value& other) {
  std::visit(
      [this](const auto& held) {
        auto copy = held;
        _data = std::move(copy);
      },
      other._data);
}

std::int64_t Value::as_integer() const {
  if (const auto* value = std::get_if<std::int64_t>(&_data)) return *value;
  refuse(type(), "an integer");
}

double Value::as_real() const {
  if (const auto* value = std::get_if<double>(&_data)) return *value;
  if (const auto* value = std::get_if<std::int64_t>(&_data)) return static_cast<double>(*value);
  refuse(type(), "a number");
}

std::string_view Value::as_text() const {
  if (const auto* value = std::get_if<std::string>(&_data)) return *value;
  refuse(type(), "text");
}

std::span<const std::byte> Value::as_blob() const {
  if (const auto* value = std::get_if<Blob>(&_data)) return *value;
  refuse(type(), "a blob");
}

void ValueView::_refuse(std::string_view wanted) const {
  refuse(_type, wanted);
}

}  // namespace veldra
