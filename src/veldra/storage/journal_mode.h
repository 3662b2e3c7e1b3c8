#pragma once

#include <string>

#include "veldra/sqlite/connection.h"

namespace veldra {

/// Puts the file into WAL mode and returns the mode that it ended up in, in lower case ("memory"
/// for a database in memory); "" when SQLite gives none. Internal.
///
/// Tries again for `Connection::BUSY_TIMEOUT`: programs that open the file at the same moment make
/// this fail at once, busy timeout or not, because SQLite does not wait with a lock it would have
/// to raise (https://www.sqlite.org/c3ref/busy_handler.html). Throws the `OperationalError` of the
/// last attempt.
std::string enter_wal_mode(Connection& connection);

}  // namespace veldra
