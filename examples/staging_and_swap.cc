// A new index is built in a staging file and swapped in while queries go on.
#include <atomic>
#include <filesystem>
#include <iostream>
#include <thread>

#include "veldra/storage/database.h"

namespace {

void fill(veldra::Database& db, std::string_view language, int files) {
  db.transaction([&](veldra::Cursor& cursor) {
    for (int i = 0; i < files; ++i)
      cursor.execute("INSERT INTO files (path, language, hash) VALUES (?, ?, ?)",
                     {"src/" + std::to_string(i), language, "d41d8cd9"});
  });
}

}  // namespace

int main() {
  for (const char* name : {"live.db", "staging.db"}) std::filesystem::remove(name);

  veldra::Database live("live.db");
  live.connect();
  live.create_schema();
  live.migrate_schema();
  fill(live, "C", 10);

  std::atomic<bool> done = false;
  std::thread reader([&] {
    while (!done) {
      const auto row = live.fetchone("SELECT COUNT(DISTINCT language) FROM files");
      if ((*row)[0].as_integer() != 1) std::cout << "a query saw a mixture\n";
    }
  });

  veldra::Database staging("staging.db");
  staging.connect();
  staging.create_schema();
  fill(staging, "C++", 20);
  staging.close();

  const veldra::RowCounts counts = live.swap_index_from("staging.db");
  std::filesystem::remove("staging.db");
  done = true;
  reader.join();

  std::cout << counts.at("files") << " files, generation " << live.index_generation() << '\n';
  live.close();
}
