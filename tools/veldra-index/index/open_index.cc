// Opening an index.
#include "veldra-index/index/open_index.h"

#include <string>
#include <system_error>

#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

/// True for a database with tables of which none is an index's: opening it would add them.
bool is_foreign(const fs::path& db) {
  std::error_code error;
  if (!fs::exists(db, error)) return false;
  try {
    Connection connection(db, Connection::Mode::ReadOnly);
    const auto row =
        connection.execute("SELECT count(*), total(name = 'files') FROM sqlite_master").fetchone();
    return (*row)[0].as_integer() > 0 && (*row)[1].as_real() == 0;
  } catch (const Error&) {
    return false;  // the opening that follows says why
  }
}

}  // namespace

OpenIndex::OpenIndex(const fs::path& db) : _database(std::make_unique<Database>(db)) {
  if (is_foreign(db)) {
    throw Failure(db.string() + " is another program's database; name another file with --db FILE");
  }
  _database->connect();
  _database->create_schema();
  _database->migrate_schema();
}

OpenIndex OpenIndex::existing(const IndexPlace& place) {
  std::error_code error;
  if (!fs::exists(place.db, error)) {
    throw Failure("no index here: run `veldra-index rebuild " + place.root.string() +
                  "` (looked for " + place.db.string() + ")");
  }
  return OpenIndex(place.db);
}

OpenIndex OpenIndex::existing_or_new(const IndexPlace& place) {
  return OpenIndex(place.db);
}

}  // namespace veldra::tool
