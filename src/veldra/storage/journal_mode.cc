// Into WAL mode, past programs that open the file meanwhile.
#include "veldra/storage/journal_mode.h"

#include <sqlite3.h>

#include <chrono>
#include <thread>

#include "veldra/errors.h"
#include "veldra/storage/schema_info.h"
#include "veldra/utils/ascii.h"

namespace veldra {

std::string enter_wal_mode(Connection& connection) {
  const auto deadline = std::chrono::steady_clock::now() + Connection::BUSY_TIMEOUT;
  while (true) {
    try {
      const std::optional<Row> mode = connection.fetchone("PRAGMA journal_mode=WAL");
      return mode ? lower_case(stored_text((*mode)[0]).value_or("")) : "";
    } catch (const OperationalError& error) {
      const bool busy = (error.code() & 0xff) == SQLITE_BUSY;
      if (!busy || std::chrono::steady_clock::now() > deadline) throw;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace veldra
