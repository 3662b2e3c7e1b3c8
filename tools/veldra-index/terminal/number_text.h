#pragma once

#include <cstdint>
#include <string>

namespace veldra::tool {

/// "12,345" and "1.5 MiB".
std::string with_commas(std::int64_t number);
std::string as_size(std::int64_t bytes);

}  // namespace veldra::tool
