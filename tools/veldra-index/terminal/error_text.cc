// Errors as the user reads them.
#include "veldra-index/terminal/error_text.h"

#include <new>

#include "veldra/errors.h"

namespace veldra::tool {
namespace {

/// SQLite's primary result codes (https://www.sqlite.org/rescode.html) that have an advice of their
/// own.
enum ResultCode : int {
  PERM = 3,
  BUSY = 5,
  LOCKED = 6,
  READONLY = 8,
  IOERR = 10,
  CORRUPT = 11,
  FULL = 13,
  CANTOPEN = 14,
  NOTADB = 26,
};

std::string advice(int code) {
  switch (code & 0xFF) {
    case PERM:
    case READONLY:
    case CANTOPEN:
      return "; make the file and its directory writable, or name another with --db FILE";
    case BUSY:
    case LOCKED:
      return "; another program is writing it: try again";
    case IOERR:
      return "; look at the disk, the index is as before";
    case CORRUPT:
      return "; " + std::string(DAMAGE_ADVICE);
    case FULL:
      return "; free some space on its volume, the index is as before";
    case NOTADB:
      return "; name another file with --db FILE";
    default:
      return {};
  }
}

}  // namespace

std::string error_text(const std::exception& error, const std::string& db) {
  if (const auto* sqlite = dynamic_cast<const Error*>(&error))
    return db + ": " + sqlite->what() + advice(sqlite->code());
  if (dynamic_cast<const SchemaMigrationError*>(&error) != nullptr)
    return db + ": " + error.what() + "; remove the file and run `veldra-index rebuild`";
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr)
    return "out of memory; close other programs, or use fewer threads with --jobs 1";
  return error.what();
}

}  // namespace veldra::tool
