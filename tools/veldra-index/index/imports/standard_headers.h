#pragma once

#include <string_view>

namespace veldra::tool {

/// True for a header of the C or C++ standard library, such as "stdio.h" and "vector".
bool is_standard_header(std::string_view name);

}  // namespace veldra::tool
