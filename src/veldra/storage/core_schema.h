#pragma once

#include <string_view>

#include "veldra/models/chunk.h"
#include "veldra/sqlite/cursor.h"

/// The tables of the current schema, as docs/file-format.md describes them. Internal.
namespace veldra {

/// Creates `code_chunks` empty. An identifier with underscores is one word of its text.
inline constexpr std::string_view CODE_CHUNKS_DDL =
    "CREATE VIRTUAL TABLE code_chunks USING fts5("
    "text, start_line UNINDEXED, end_line UNINDEXED, exact UNINDEXED,"
    " tokenize = \"unicode61 tokenchars '_'\")";

/// Creates the trigger that deletes a file's chunks with the file: by their range of row ids, since
/// a filter on a column would scan the full-text table.
static_assert(CHUNKS_PER_FILE == 1048576);
inline constexpr std::string_view CHUNKS_TRIGGER_DDL =
    "CREATE TRIGGER files_delete_chunks AFTER DELETE ON files BEGIN"
    " DELETE FROM code_chunks"
    " WHERE rowid >= old.id * 1048576 AND rowid < (old.id + 1) * 1048576;"
    " END";

/// Creates every table, index and trigger of the current schema that the file lacks, inside the
/// caller's transaction, and leaves those it has as they are. A file without any table is new: it
/// records `SCHEMA_VERSION` at once.
///
/// Where nothing is missing, one query is all: no write lock is taken, so it can run at every open.
/// Throws the `Error` of a statement that fails.
void create_tables(Cursor& cursor);

}  // namespace veldra
