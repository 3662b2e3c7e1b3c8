// What leaves the index with a file, and that one process at a time builds it.
#include "veldra-index/index/index_writer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/temp_database.h"
#include "veldra-index/index/build_lock.h"
#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

TEST(IndexWriterTest, ARemovedFileTakesItsErrorsWithIt) {
  TempDatabase database;
  Database& index = database.db;
  index.execute(
      "INSERT INTO files (path, language, hash) VALUES ('a.c', 'C', 'x'), ('b.c', 'C', 'x')");
  index.execute(
      "INSERT INTO index_errors (file_path, error_type, message) VALUES"
      " ('a.c', 'parse_error', ''), ('b.c', 'parse_error', '')");
  const std::vector<std::string_view> paths = {"b.c"};
  index.transaction([&](Cursor& cursor) {
    IndexWriter writer(cursor, paths, {});
    EXPECT_TRUE(writer.remove("a.c"));
    EXPECT_FALSE(writer.remove("a.c"));
    writer.record_problems("b.c", {{"io_error", "anew", 7}});
    writer.finish();
  });
  EXPECT_EQ(dump(index, "SELECT path FROM files"), "b.c");
  EXPECT_EQ(dump(index, "SELECT file_path, error_type, line FROM index_errors"), "b.c|io_error|7")
      << "errors of a file that is gone, or that were replaced, stay";
}

TEST(IndexWriterTest, EveryRowArrivesHoweverManyGoIntoOneStatement) {
  const std::vector<std::string_view> paths = {"a.c"};
  for (const int count : {1, 63, 64, 130}) {
    TempDatabase database;
    ParsedFile file;
    file.path = paths.front();
    file.tags = std::string(200, 'x');  // where the names lie
    for (int at = 0; at < count; ++at) {
      const auto parent = static_cast<std::size_t>(at) - 1;  // NO_PARENT for the first
      const std::string_view name =
          std::string_view(file.tags).substr(static_cast<std::size_t>(at));
      file.symbols.push_back({name, name, "function", at + 1, 0, parent});
      file.imports.push_back({std::to_string(at), {}, at + 1, true});
    }
    database.db.transaction([&](Cursor& cursor) {
      IndexWriter writer(cursor, paths, {});
      writer.add(file);
      writer.finish();
    });
    EXPECT_EQ(dump(database.db,
                   "SELECT count(DISTINCT fqn) FROM symbols WHERE kind = 'function'"
                   " AND ifnull(parent_id, 1) = id - 1 AND start_line = id - 1"),
              std::to_string(count));
    EXPECT_EQ(dump(database.db, "SELECT count(DISTINCT module) FROM external_imports"),
              std::to_string(count));
  }
}

TEST(BuildLockTest, IsHeldByOneWhateverItsFileGoesThrough) {
  const TempDirectory directory;
  const IndexPlace place{directory.path(), directory / "index.db"};
  std::atomic<int> holders = 0;
  std::atomic<int> taken = 0;
  std::atomic<bool> shared = false;
  std::vector<std::jthread> builders;
  for (int builder = 0; builder < 8; ++builder) {
    builders.emplace_back([&] {
      while (taken < 200 && !shared) {
        try {
          const BuildLock lock(place);
          if (++holders > 1) shared = true;
          ++taken;
          std::this_thread::yield();  // the others try meanwhile
          --holders;
        } catch (const Failure&) {  // another has it
        }
      }
    });
  }
  builders.clear();
  EXPECT_FALSE(shared) << "two held the lock after " << taken << " times";
}

}  // namespace
}  // namespace veldra::tool
