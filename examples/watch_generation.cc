// A process that caches by file id drops its cache when another process has replaced the index.
#include <filesystem>
#include <iostream>
#include <map>
#include <string>

#include "veldra/storage/database.h"

namespace {

/// The paths of files by their id, as of one generation of the index.
class PathCache {
 public:
  explicit PathCache(veldra::Database& db) : _db(db) {}

  std::string path_of(std::int64_t file_id) {
    const std::int64_t generation = _db.index_generation();  // reads the file's header, no table
    if (generation != _generation) {
      _paths.clear();
      _generation = generation;
    }
    const auto [entry, is_new] = _paths.try_emplace(file_id);
    if (is_new) {
      const auto row = _db.fetchone("SELECT path FROM files WHERE id = ?", {file_id});
      if (row) entry->second = (*row)["path"].as_text();
    }
    return entry->second;
  }

 private:
  veldra::Database& _db;
  std::int64_t _generation = -1;
  std::map<std::int64_t, std::string> _paths;
};

void make_index(const char* file, const char* path) {
  std::filesystem::remove(file);
  veldra::Database db(file);
  db.connect();
  db.create_schema();
  db.execute("INSERT INTO files (id, path, language, hash) VALUES (1, ?, 'C', 'd41d8cd9')", {path});
  db.close();
}

}  // namespace

int main() {
  make_index("watched.db", "old/name.c");
  make_index("replacement.db", "new/name.c");

  veldra::Database here("watched.db");
  here.connect();
  PathCache cache(here);
  std::cout << cache.path_of(1) << '\n';

  veldra::Database there("watched.db");  // as another process would
  there.connect();
  there.swap_index_from("replacement.db");
  there.close();

  std::cout << cache.path_of(1) << '\n';
  here.close();
}
