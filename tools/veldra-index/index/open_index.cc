// Opening an index.
#include "veldra-index/index/open_index.h"

#include <spdlog/spdlog.h>

#include <charconv>
#include <string>
#include <system_error>

#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

/// What a look at the file tells before it is opened for writing.
struct Look {
  bool foreign = false;  // it has tables, none of them an index's: opening it would add them
  bool newer = false;
};

Look look_at(const fs::path& db) {
  std::error_code error;
  if (!fs::exists(db, error)) return {};
  try {
    Connection connection(db, Connection::Mode::ReadOnly);
    const auto row =
        connection.execute("SELECT count(*), total(name = 'files') FROM sqlite_master").fetchone();
    const bool foreign = (*row)[0].as_integer() > 0 && (*row)[1].as_real() == 0;
    return {foreign, !foreign && release_of(connection) == Release::Newer};
  } catch (const Error&) {
    return {};  // the opening that follows says why
  }
}

Look refuse_foreign(const fs::path& db) {
  const Look look = look_at(db);
  if (look.foreign)
    throw Failure(db.string() + " is another program's database; name another file with --db FILE");
  return look;
}

}  // namespace

void check_is_index(const IndexPlace& place) {
  std::error_code error;
  if (!fs::exists(place.db, error)) {
    throw Failure("no index here: run `veldra-index rebuild " + place.root.string() +
                  "` (looked for " + place.db.string() + ")");
  }
  refuse_foreign(place.db);
}

Release release_of(Connection& connection) {
  if (!connection.fetchone("SELECT 1 FROM sqlite_master WHERE name = 'schema_info'"))
    return Release::Older;
  const auto row = connection.fetchone("SELECT value FROM schema_info WHERE key = 'version'");
  const std::string_view version = row && !(*row)[0].is_null() ? (*row)[0].as_text() : "";
  const auto number = [](std::string_view text) {
    int parsed = 0;
    std::from_chars(text.data(), text.data() + text.size(), parsed);
    return parsed;
  };
  if (version == SCHEMA_VERSION) return Release::This;
  return number(version) > number(SCHEMA_VERSION) ? Release::Newer : Release::Older;
}

bool tells_of_damage(const Error& error, const IndexPlace& place) {
  static constexpr int CORRUPT = 11;  // https://www.sqlite.org/rescode.html
  static constexpr int NOTADB = 26;
  const int code = error.code() & 0xFF;
  return code == CORRUPT || (code == NOTADB && place.is_usual());
}

void set_aside(const IndexPlace& place) {
  const fs::path aside = place.damaged();
  for (const char* suffix : {"-wal", "-shm", ""}) {  // the file last: its log belongs to it
    fs::path from = place.db;
    fs::path to = aside;
    std::error_code error;
    fs::rename(from += suffix, to += suffix, error);
    if (error && *suffix == '\0')
      throw Failure("cannot set the damaged " + place.db.string() + " aside: " + error.message());
  }
  spdlog::warn("the index was damaged: it is now {}", aside.string());
}

OpenIndex::OpenIndex(const fs::path& db) : _database(std::make_unique<Database>(db)) {
  if (refuse_foreign(db).newer) {
    throw Failure(db.string() +
                  " was made by a newer release of veldra-index: use that one to change it");
  }
  _database->connect();
  _database->create_schema();
  _database->migrate_schema();
}

OpenIndex OpenIndex::existing(const IndexPlace& place) {
  check_is_index(place);
  return OpenIndex(place.db);
}

OpenIndex OpenIndex::existing_or_new(const IndexPlace& place) {
  return OpenIndex(place.db);
}

}  // namespace veldra::tool
