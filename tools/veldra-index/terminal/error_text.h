#pragma once

#include <exception>
#include <string>

namespace veldra::tool {

/// One line for the user: what went wrong, with the words of whoever found it, and what to do.
std::string error_text(const std::exception& error, const std::string& db);

}  // namespace veldra::tool
