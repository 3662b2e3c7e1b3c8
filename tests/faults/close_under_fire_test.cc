// Closing while every operation runs in threads of its own, and connecting again.
#include <future>
#include <latch>
#include <vector>

#include "faults/index_file.h"
#include "faults/measured.h"
#include "faults/operations.h"
#include "support/finished.h"

namespace veldra {
namespace {

/// Runs the operation again and again until the database is closed.
int run_until_closed(Database& db, const Operation& operation, std::latch& under_way) {
  int runs = 0;
  while (!db.closed()) {
    try {
      operation.run(db);
    } catch (const RuntimeError& error) {
      EXPECT_STREQ(error.what(), "Database is closed.");
    } catch (const OperationalError& error) {
      // The rows of the kept cursor have not been read: under them SQLite neither drops a table
      // nor detaches a file.
      EXPECT_TRUE(std::string_view(error.what()).ends_with("is locked"))
          << operation.name << ": " << error.what();
    } catch (const std::exception& error) {
      ADD_FAILURE() << operation.name << ": " << typeid(error).name() << ": " << error.what();
    }
    if (++runs == 1) under_way.count_down();
  }
  return runs;
}

TEST(CloseUnderFireTest, EndsEveryOperationWithADocumentedErrorAndLeavesAWholeFile) {
  std::vector<Operation> running;
  for (const Operation& operation : operations()) {
    if (operation.file == Operation::File::Index && operation.on_open_database &&
        operation.name != "close")
      running.push_back(operation);
  }
  TempDirectory directory;
  make_file(Operation::File::Index, directory.path());
  const LogCapture quiet;
  Database db(index_in(directory.path()));
  const long rounds = asked_for("VELDRA_CLOSES", 10);
  int runs = 0;
  for (long round = 0; round < rounds; ++round) {
    db.connect();
    db.create_schema();
    db.migrate_schema();
    const std::shared_ptr<Connection> kept_connection = db.connection();
    std::latch under_way(static_cast<std::ptrdiff_t>(running.size()));
    std::vector<std::future<int>> threads;
    for (const Operation& operation : running) {
      threads.push_back(std::async(std::launch::async, run_until_closed, std::ref(db),
                                   std::cref(operation), std::ref(under_way)));
    }
    under_way.wait();
    Cursor kept_cursor = db.execute("SELECT value FROM schema_info");

    std::future<void> closed = std::async(std::launch::async, [&] { db.close(); });
    db.close();
    EXPECT_TRUE(finished(closed)) << "the second of two threads that close waits for ever";
    for (std::future<int>& thread : threads) {
      ASSERT_TRUE(finished(thread)) << "an operation outlasted close()";
      runs += thread.get();
    }
    EXPECT_TRUE(db.closed());
    EXPECT_THROW(kept_cursor.fetchone(), ProgrammingError);
    EXPECT_THROW(kept_connection->execute("SELECT 1"), ProgrammingError);
    EXPECT_TRUE(nothing_left_beside(db.db_path));
    EXPECT_EQ(look_at(db.db_path).damage, "");
  }
  measured("close under fire", "every operation",
           std::to_string(rounds) + "|" + std::to_string(runs) + "|" +
               std::to_string(testing::Test::HasFailure() ? 1 : 0));
}

}  // namespace
}  // namespace veldra
