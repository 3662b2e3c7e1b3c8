#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace veldra::tool {

/// What to do about a damaged index.
inline constexpr std::string_view DAMAGE_ADVICE =
    "run `veldra-index rebuild`, which sets it aside and makes a new one";

/// One line for the user: what went wrong, with the words of whoever found it, and what to do.
std::string error_text(const std::exception& error, const std::string& db);

}  // namespace veldra::tool
