#pragma once

#include <cstdint>
#include <string_view>

namespace veldra {

/// A chunk's row id is `file_id * CHUNKS_PER_FILE + ordinal`, so a file's chunks are one range.
inline constexpr std::int64_t CHUNKS_PER_FILE = 1048576;

/// The SQL expression, over the row id of `code_chunks`, for the id of the chunk's file.
inline constexpr std::string_view FILE_OF_CHUNK_SQL = "rowid / 1048576";

}  // namespace veldra
