#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "veldra/storage/database.h"

namespace veldra::tool {

/// Members keep the order in which they were set.
using Json = nlohmann::ordered_json;

/// Prints one JSON value, indented; bytes that are no UTF-8 become U+FFFD.
void print_json(const Json& value);

/// A value on one line, with the same rule for bytes.
std::string compact_json(const Json& value);

/// A row's column as JSON: null, number, text; a blob as its hexadecimal digits.
Json to_json(const ValueView& value);
std::string to_text(const ValueView& value);

}  // namespace veldra::tool
