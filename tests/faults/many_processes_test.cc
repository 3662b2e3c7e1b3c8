// Three processes with several threads each on one file, for as long as VELDRA_SECONDS asks.
#include <sqlite3.h>

#include <future>
#include <memory>
#include <sstream>
#include <vector>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/child_process.h"
#include "support/pages.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using Clock = std::chrono::steady_clock;

struct Figures {
  long runs = 0;
  long refused = 0;  // because others held the file for the whole busy timeout
  long longest_ms = 0;
};

using Job = std::function<void(long run)>;

/// Works until `end`; any error but a file that stayed locked fails.
Figures repeat(const Job& job, Clock::time_point end) {
  Figures figures;
  while (Clock::now() < end) {
    const Clock::time_point began = Clock::now();
    try {
      job(figures.runs);
      ++figures.runs;
    } catch (const OperationalError& error) {
      EXPECT_TRUE(error.code() == SQLITE_BUSY || error.code() == SQLITE_BUSY_RECOVERY)
          << error.code() << ' ' << error.what();
      ++figures.refused;
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began);
    figures.longest_ms = std::max<long>(figures.longest_ms, took.count());
  }
  return figures;
}

void expect_one_generation(Database& db) {
  const std::string marks = dump(db, MARKS);
  EXPECT_EQ(marks.find('\n'), std::string::npos) << "two generations in one statement: " << marks;
}

/// What one process does with the file in `directory`; its parent is told the figures.
void work_in(const std::filesystem::path& directory, std::int64_t process, Clock::time_point end,
             const ChildProcess::Tell& tell) {
  const LogCapture quiet;
  Database db(index_in(directory));
  db.connect();
  db.create_schema();
  static constexpr std::string_view KEEP = "INSERT INTO kept (who, what) VALUES (?, ?)";
  static constexpr std::string_view KEPT = "SELECT count(*) FROM kept WHERE who = ? AND what = ?";
  const auto work_on_one_row = [&](long) { db.execute(KEEP, {process, "row"}); };
  const auto work_on_two_rows = [&](long run) {
    db.transaction([&](Cursor& cursor) {
      cursor.execute(KEEP, {process, "pair"});
      cursor.execute(KEPT, {process, "pair"});
      EXPECT_EQ((*cursor.fetchone())[0].as_integer(), 2 * run + 1);
      cursor.execute(KEEP, {process, "pair"});
    });
  };
  const auto read = [&](long) { expect_one_generation(db); };
  const auto swap = [&](long run) {
    db.swap_index_from(directory / (run % 2 == 0 ? "staging.db" : "other.db"));
    if (run % 8 == 7) db.clear_all();
  };
  const auto compact = [&](long) {
    db.execute("INSERT INTO kept (id, what) VALUES (?, zeroblob(1200000))", {-process});
    db.execute("DELETE FROM kept WHERE id = ?", {-process});
    const std::string skipped = db.compact().skipped.value_or("");
    EXPECT_TRUE(skipped.empty() || skipped == "failed: database is locked") << skipped;
  };
  const auto open_and_close = [&](long) {
    Database another(index_in(directory));
    another.connect();
    another.create_schema();
    expect_one_generation(another);
    another.close();
  };
  std::vector<std::future<Figures>> threads;
  for (const Job& job : std::initializer_list<Job>{work_on_one_row, work_on_two_rows, read, read,
                                                   swap, compact, open_and_close})
    threads.push_back(std::async(std::launch::async, repeat, job, end));
  std::vector<Figures> figures;
  for (std::future<Figures>& thread : threads) figures.push_back(thread.get());
  const auto kept = [&](const char* what) {
    return (*db.fetchone(KEPT, {process, what}))[0].as_integer();
  };
  EXPECT_EQ(kept("row"), figures[0].runs) << "lost what was acknowledged";
  EXPECT_EQ(kept("pair"), 2 * figures[1].runs) << "lost what was acknowledged";
  db.close();
  for (const auto& [runs, refused, longest_ms] : figures) {
    tell(std::to_string(runs) + ' ' + std::to_string(refused) + ' ' + std::to_string(longest_ms) +
         ' ');
  }
}

TEST(ManyProcessesTest, NobodySeesTwoGenerationsAndNothingAcknowledgedIsLost) {
  const long seconds = asked_for("VELDRA_SECONDS", 8);
  TempDirectory directory;
  const std::filesystem::path index = index_in(directory.path());
  make_pages(index, "INCREMENTAL", 20, 2);
  make_file(Operation::File::Index, directory.path());
  make_index(directory / "other.db", "other");

  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (const std::int64_t process : {1, 2, 3}) {
    children.push_back(std::make_unique<ChildProcess>(
        [&](const ChildProcess::Tell& tell) { work_in(directory.path(), process, end, tell); }));
  }
  Figures all;
  for (const std::unique_ptr<ChildProcess>& child : children) {
    EXPECT_EQ(child->wait(), 0);
    std::istringstream told(child->hear());
    for (Figures one; told >> one.runs >> one.refused >> one.longest_ms;) {
      all.runs += one.runs;
      all.refused += one.refused;
      all.longest_ms = std::max(all.longest_ms, one.longest_ms);
    }
  }
  EXPECT_TRUE(nothing_left_beside(index));
  EXPECT_EQ(look_at(index).damage, "");
  measured("many processes", "3 for " + std::to_string(seconds) + " s", all.runs,
           std::to_string(all.refused) + " refused, longest wait " +
               std::to_string(all.longest_ms) + " ms");
}

}  // namespace
}  // namespace veldra
