#pragma once

#include <string_view>

namespace veldra::tool {

/// True for the releases of SQLite in which a checkpoint that races another process's commit can
/// lose it: 3.7.0 to 3.51.2 except 3.44.6 and 3.50.7 (https://www.sqlite.org/wal.html#walresetbug).
bool has_wal_reset_fault(std::string_view version);

}  // namespace veldra::tool
