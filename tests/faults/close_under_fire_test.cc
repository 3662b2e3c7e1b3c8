// Closing while every operation runs in threads of its own, and connecting again.
#include <future>
#include <latch>
#include <vector>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/finished.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

/// Runs the operation again and again until the database is closed.
int run_until_closed(Database& db, const Operation& operation, std::latch& under_way) {
  int runs = 0;
  while (!db.closed()) {
    const std::string error = outcome_of([&] { operation.run(db); });
    // Under the kept cursor, whose rows have not been read, SQLite neither drops a table nor
    // detaches a file.
    EXPECT_TRUE(error.empty() || error == "Database is closed." ||
                error.find(" is locked") != error.npos)
        << operation.name << ": " << error;
    if (++runs == 1) under_way.count_down();
  }
  return runs;
}

TEST(CloseUnderFireTest, EndsEveryOperationWithADocumentedErrorAndLeavesAWholeFile) {
  // An export has a connection of its own, which may outlast the database.
  const std::vector<Operation> running = operations_that(
      [](const Operation& it) { return share_an_index(it) && it.name != "export_to"; });
  TempDirectory directory;
  make_file(Operation::File::Index, directory.path());
  const LogCapture quiet;
  Database db(index_in(directory.path()));
  const long rounds = asked_for("VELDRA_CLOSES", 10);
  int runs = 0;
  for (long round = 0; round < rounds; ++round) {
    open(db);
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
  measured("close under fire", "every operation", rounds, std::to_string(runs));
}

}  // namespace
}  // namespace veldra
