#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace veldra {

/// Makes a file as the first release did: version 1, pages of 1,024 bytes, no auto-vacuum, WAL,
/// with `files` files and two symbols, an edge, an import and an error record for each.
void make_old_file(const std::filesystem::path& path, int files);

/// Every row of the columns that version 1 had, but for `files.hash`: what no migration may change.
inline constexpr std::string_view OLD_ROWS =
    "SELECT 'c', id, name, path FROM components UNION ALL"
    " SELECT 'f', id, path, language || size || component_id FROM files UNION ALL"
    " SELECT 's', id, file_id, name || ifnull(fqn, '') || kind || start_line FROM symbols UNION ALL"
    " SELECT 'e', source_id, target_id, kind || line FROM edges UNION ALL"
    " SELECT 'i', id, file_id, module FROM external_imports UNION ALL"
    " SELECT 'x', id, file_path, error_type || message FROM index_errors";

/// Opens `path` beside everything else and runs `sql`, as another process would; what it gave.
std::string as_another_process(const std::filesystem::path& path, std::string_view sql);

}  // namespace veldra
