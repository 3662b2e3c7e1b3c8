#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "veldra/errors.h"
#include "veldra/sqlite/cursor.h"
#include "veldra/storage/core_schema.h"
#include "veldra/storage/schema_info.h"
#include "veldra/storage/schema_version.h"

/// The steps that bring a file of an earlier release to `SCHEMA_VERSION`. Internal.
///
/// | version | what the step to it does                                                     |
/// |---------|------------------------------------------------------------------------------|
/// | 2       | adds `code_chunks` and its trigger, marks every file stale                   |
/// | 3       | adds `symbols.parent_id` and the column `line` of `index_errors`             |
namespace veldra {

/// Runs the steps that come after `recorded`, oldest first, and returns the version that the file
/// is at then. A version that no step knows is returned as it is, and nothing runs.
///
/// Each step runs in a transaction of its own, which also records the version it reaches. It takes
/// the write lock first and looks again: of two processes that open an old file at the same moment
/// one runs the step, and the other finds it done.
///
/// Throws `SchemaMigrationError` when a step fails, after one ERROR record with the cause; the file
/// is at the version before that step. A `RuntimeError` passes through: somebody closed the
/// database.
std::string migrate(const TransactionOpener& open_transaction, std::string_view recorded);

/// Marks every file of `languages` stale, so that the next index pass parses it again. Returns how
/// many of them were not stale before.
std::int64_t mark_files_stale(Cursor& cursor, const std::vector<std::string>& languages);

/// Runs `ddl`, one statement or several with semicolons between, inside the caller's transaction.
/// Stops at the first that fails.
void run_ddl(Cursor& cursor, std::string_view ddl);

}  // namespace veldra
