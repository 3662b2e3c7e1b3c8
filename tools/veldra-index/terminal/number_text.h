#pragma once

#include <cstdint>
#include <string>

namespace veldra::tool {

/// "12,345" and "1.5 MiB".
std::string with_commas(std::int64_t number);
std::string as_size(std::int64_t bytes);

/// "1 file", "2 files".
std::string counted(std::int64_t number, const std::string& one, const std::string& several);

}  // namespace veldra::tool
