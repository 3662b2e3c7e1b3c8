#pragma once

#include <string_view>

namespace veldra {

/// The version of the first release's schema; a file that records none counts as being at it.
inline constexpr std::string_view OLDEST_VERSION = "1";

/// The schema version of this build.
inline constexpr std::string_view SCHEMA_VERSION = "3";

/// The `files.hash` of a file that the next index pass has to parse again.
inline constexpr std::string_view REINDEX_SENTINEL_HASH = "stale";

}  // namespace veldra
