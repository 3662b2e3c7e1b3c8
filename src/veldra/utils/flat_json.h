#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// One flat JSON object of integers, read and written. Internal.
///
///     parse_flat_json(R"({"kotlin": 2, "typescript": 3})")->at("kotlin")  // 2
///
/// Names are texts of any bytes. The written form is ASCII: a byte that is not part of valid UTF-8
/// stands there as the escape \udcNN, a lone surrogate, and is read back as that byte
/// (https://peps.python.org/pep-0383/), so every mapping is read as it was written.
///
/// Thread safety: pure functions.
namespace veldra {

/// The members of `text`; of several with one name the last counts.
///
/// None unless the whole of `text` is one JSON object (https://www.rfc-editor.org/rfc/rfc8259)
/// whose values are all integers in decimal digits that fit 64 bits with a sign. Any bytes may be
/// given.
std::optional<std::map<std::string, std::int64_t>> parse_flat_json(std::string_view text);

/// `{"kotlin": 2, "typescript": 3}`: names in ascending order, ", " and ": " between, everything
/// but printable ASCII escaped, a character beyond U+FFFF as a pair of escapes.
std::string format_flat_json(const std::map<std::string, std::int64_t>& members);

}  // namespace veldra
