// Answers in JSON.
#include "veldra-index/terminal/json_output.h"

#include <iostream>
#include <span>
#include <string_view>

namespace veldra::tool {
namespace {

std::string hexadecimal(std::span<const std::byte> bytes) {
  static constexpr std::string_view DIGITS = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += DIGITS[std::to_integer<std::size_t>(byte >> 4)];
    text += DIGITS[std::to_integer<std::size_t>(byte & std::byte{15})];
  }
  return text;
}

}  // namespace

void print_json(const Json& value) {
  std::cout << value.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::string compact_json(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json to_json(const ValueView& value) {
  switch (value.type()) {
    case StorageClass::Null:
      return nullptr;
    case StorageClass::Integer:
      return value.as_integer();
    case StorageClass::Real:
      return value.as_real();
    case StorageClass::Text:
      return std::string(value.as_text());
    case StorageClass::Blob:
      break;
  }
  return hexadecimal(value.as_blob());
}

std::string to_text(const ValueView& value) {
  const Json json = to_json(value);
  if (json.is_null()) return {};
  return json.is_string() ? json.get<std::string>() : json.dump();
}

}  // namespace veldra::tool
