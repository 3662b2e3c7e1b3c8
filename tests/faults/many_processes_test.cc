// Three processes with several threads each on one file, for as long as VELDRA_SECONDS asks.
#include <sqlite3.h>

#include <algorithm>
#include <future>
#include <memory>
#include <sstream>
#include <vector>

#include "faults/index_file.h"
#include "faults/measured.h"
#include "faults/operations.h"
#include "support/child_process.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

struct Scene {
  std::filesystem::path directory;
  std::string process;
  Clock::time_point end;

  std::filesystem::path index() const { return index_in(directory); }
};

struct Figures {
  long runs = 0;
  long refused = 0;     // because others held the file for the whole busy timeout
  long longest_ms = 0;  // how long one run took at most

  Figures& operator+=(const Figures& other) {
    runs += other.runs;
    refused += other.refused;
    longest_ms = std::max(longest_ms, other.longest_ms);
    return *this;
  }
};

/// Runs `work` until the end of the scene; any error but a file that stayed locked fails.
Figures repeat(const Scene& scene, const std::string& name, const std::function<void(long)>& work) {
  Figures figures;
  while (Clock::now() < scene.end) {
    const Clock::time_point started = Clock::now();
    try {
      work(figures.runs);
      ++figures.runs;
    } catch (const OperationalError& error) {
      EXPECT_TRUE(error.code() == SQLITE_BUSY || error.code() == SQLITE_BUSY_RECOVERY)
          << name << ", run " << figures.runs << ": " << error.code() << ' ' << error.what();
      ++figures.refused;
    }
    const auto took = std::chrono::duration_cast<Milliseconds>(Clock::now() - started).count();
    figures.longest_ms = std::max<long>(figures.longest_ms, took);
  }
  return figures;
}

void expect_one_generation(Database& db) {
  const std::string marks = dump(db, MARKS);
  EXPECT_EQ(marks.find('\n'), std::string::npos) << "two generations in one statement: " << marks;
}

Figures write(Database& db, const Scene& scene) {
  const std::string who = scene.process + " writes";
  const Figures figures = repeat(
      scene, who, [&](long /*run*/) { db.execute("INSERT INTO kept (who) VALUES (?)", {who}); });
  EXPECT_EQ(dump(db, "SELECT count(*) FROM kept WHERE who = '" + who + "'"),
            std::to_string(figures.runs))
      << "lost what was acknowledged";
  return figures;
}

/// Two rows that belong together, after reading.
Figures write_in_transactions(Database& db, const Scene& scene) {
  const std::string who = scene.process + " transacts";
  const Figures figures = repeat(scene, who, [&](long run) {
    db.transaction([&](Cursor& cursor) {
      cursor.execute("INSERT INTO kept (who) VALUES (?)", {who});
      cursor.execute("SELECT count(*) FROM kept WHERE who = ?", {who});
      EXPECT_EQ((*cursor.fetchone())[0].as_integer(), 2 * run + 1);
      cursor.execute("INSERT INTO kept (who) VALUES (?)", {who});
    });
  });
  EXPECT_EQ(dump(db, "SELECT count(*) FROM kept WHERE who = '" + who + "'"),
            std::to_string(2 * figures.runs))
      << "lost what was acknowledged";
  return figures;
}

Figures read(Database& db, const Scene& scene) {
  return repeat(scene, "reads", [&](long /*run*/) { expect_one_generation(db); });
}

Figures swap(Database& db, const Scene& scene) {
  return repeat(scene, "swaps", [&](long run) {
    db.swap_index_from(scene.directory / (run % 2 == 0 ? "staging.db" : "other.db"));
    if (run % 8 == 7) db.clear_all();
  });
}

Figures compact(Database& db, const Scene& scene) {
  return repeat(scene, "compacts", [&](long /*run*/) {
    db.execute("INSERT INTO kept (id, who, what) VALUES (?, 'filler', zeroblob(1200000))",
               {-std::stoll(scene.process)});
    db.execute("DELETE FROM kept WHERE id = ?", {-std::stoll(scene.process)});
    const std::string skipped = db.compact().skipped.value_or("");
    EXPECT_TRUE(skipped.empty() || skipped == "failed: database is locked") << skipped;
  });
}

Figures open_and_close(Database& /*db*/, const Scene& scene) {
  return repeat(scene, "opens", [&](long /*run*/) {
    Database another(scene.index());
    another.connect();
    another.create_schema();
    expect_one_generation(another);
    another.close();
  });
}

TEST(ManyProcessesChild, DISABLED_Works) {
  std::istringstream argument(child_argument());
  Scene scene;
  long seconds = 0;
  argument >> scene.process >> seconds >> scene.directory;
  scene.end = Clock::now() + std::chrono::seconds(seconds);
  const LogCapture quiet;
  Database db(scene.index());
  db.connect();
  db.create_schema();
  std::vector<std::future<Figures>> threads;
  for (auto* work : {write, write_in_transactions, read, read, swap, compact, open_and_close})
    threads.push_back(std::async(std::launch::async, work, std::ref(db), std::cref(scene)));
  Figures all;
  for (std::future<Figures>& thread : threads) all += thread.get();
  db.close();
  if (HasFailure()) return;
  std::ostringstream figures;
  figures << all.runs << ' ' << all.refused << ' ' << all.longest_ms;
  tell_parent(figures.str());
}

TEST(ManyProcessesTest, NobodySeesTwoGenerationsAndNothingAcknowledgedIsLost) {
  constexpr int PROCESSES = 3;
  const long seconds = asked_for("VELDRA_SECONDS", 8);
  TempDirectory directory;
  make_small_pages(index_in(directory.path()), "INCREMENTAL");
  make_file(Operation::File::Index, directory.path());
  make_index(directory / "other.db", "other");

  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int i = 1; i <= PROCESSES; ++i) {
    children.push_back(std::make_unique<ChildProcess>(
        this_program_running("ManyProcessesChild.DISABLED_Works"),
        with_child_argument(std::to_string(i) + " " + std::to_string(seconds) + " " +
                            directory.path().string())));
  }
  Figures all;
  for (const std::unique_ptr<ChildProcess>& child : children) {
    EXPECT_EQ(child->wait(), 0);
    Figures figures;
    std::istringstream(child->hear()) >> figures.runs >> figures.refused >> figures.longest_ms;
    all += figures;
  }
  EXPECT_TRUE(nothing_left_beside(index_in(directory.path())));
  EXPECT_EQ(look_at(index_in(directory.path())).damage, "");
  measured("many processes", std::to_string(PROCESSES) + " for " + std::to_string(seconds) + " s",
           std::to_string(all.runs) + "|" + std::to_string(all.refused) +
               " refused, longest wait " + std::to_string(all.longest_ms) + " ms|" +
               std::to_string(HasFailure() ? 1 : 0));
}

}  // namespace
}  // namespace veldra
