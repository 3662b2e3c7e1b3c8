// A service with an event loop: the loop's thread asks and records, a pool thread compacts.
#include <future>
#include <iostream>

#include "veldra/platform/event_loop.h"
#include "veldra/storage/database.h"

int main() {
  veldra::Database db("service.db");
  db.connect();
  db.create_schema();
  db.migrate_schema();

  // While this guard lives the thread counts as the one that runs the loop.
  const veldra::EventLoopScope on_the_loop;
  db.record_error("src/broken.cc", veldra::PARTIAL_PARSE_ERROR, "unexpected end of file", 17);
  std::cout << "files with errors: " << db.get_error_count() << '\n';

  // Compaction blocks on the disk: it declines here, and runs on a pool thread.
  std::cout << "on the loop: " << db.compact().skipped.value_or("compacted") << '\n';
  std::future<veldra::Compaction> elsewhere =
      std::async(std::launch::async, [&] { return db.compact(); });
  std::cout << "on a pool thread: " << elsewhere.get().skipped.value_or("nothing against it")
            << '\n';

  db.clear_file_errors("src/broken.cc");
  db.close();
}
