// A process that is killed, and a machine that loses power, leave a whole file: the state before
// the operation, one that it commits on its way, or the one after it.
#include <random>
#include <string>
#include <thread>

#include "faults/index_file.h"
#include "faults/measured.h"
#include "faults/operations.h"
#include "support/child_process.h"
#include "support/fault_vfs.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class Death : public OperationTest {
 protected:
  Death() : seed(asked_for("VELDRA_SEED", static_cast<long>(std::random_device()()))) {}

  const long seed;
  std::mt19937 random{static_cast<unsigned>(seed)};
};

class KillTest : public Death {
 protected:
  /// Runs the operation in a process of its own, which is killed `delay` after it began.
  void run_and_kill(std::chrono::microseconds delay) {
    TempDirectory directory;
    copy_files(directory);
    ChildProcess child(this_program_running("KillTestChild.DISABLED_RunsOneOperation"),
                       with_child_argument(directory.path().string() + "|" + GetParam().name));
    std::string said = child.hear();
    ASSERT_TRUE(said.starts_with("ready"));
    std::this_thread::sleep_for(delay);
    child.kill();
    child.wait();
    const std::filesystem::path index = index_in(directory.path());
    said += child.hear();
    if (said == "readydone") {
      ++_done;
      EXPECT_EQ(look_at(index).content, end) << "lost what was acknowledged";
    }
    expect_whole(index);
    expect_works(index);
  }

  int _done = 0;
};

TEST(KillTestChild, DISABLED_RunsOneOperation) {
  const std::string argument = child_argument();
  const std::size_t bar = argument.find('|');
  for (const Operation& operation : operations()) {
    if (operation.name != argument.substr(bar + 1)) continue;
    const LogCapture quiet;
    Database db(index_in(argument.substr(0, bar)));
    if (operation.on_open_database) db.connect();
    tell_parent("ready");
    operation.run(db);
    tell_parent("done");
  }
}

TEST_P(KillTest, LeavesAWholeFile) {
  note_states();
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  TempDirectory directory;
  copy_files(directory);
  Database db(index_in(directory.path()));
  if (GetParam().on_open_database) db.connect();
  const Clock::time_point started = Clock::now();
  GetParam().run(db);
  const auto longest =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started);
  db.close();

  const long kills = asked_for("VELDRA_KILLS", 8);
  std::uniform_int_distribution<std::chrono::microseconds::rep> delay(0, longest.count());
  for (long kill = 0; kill < kills && !HasFailure(); ++kill)
    run_and_kill(std::chrono::microseconds(delay(random)));
  measured("kill", GetParam().name,
           std::to_string(kills) + "|" + std::to_string(_done) + "|" +
               std::to_string(HasFailure() ? 1 : 0));
}

INSTANTIATE_TEST_SUITE_P(Operations, KillTest, testing::ValuesIn(writing_operations()), name_of);

class PowerLossTest : public Death {};

TEST_P(PowerLossTest, LeavesAWholeFile) {
  note_states();
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  FaultVfs vfs;
  int changes = 0;
  const auto run = [&](const std::function<void()>& before_change) {
    TempDirectory directory;
    copy_files(directory);
    changes = 0;
    vfs.watch_changes(before_change);
    Database db(index_in(directory.path()));
    if (GetParam().on_open_database) db.connect();
    GetParam().run(db);
    db.close();
    vfs.watch_changes({});
  };
  run([&] { ++changes; });

  const int moments = static_cast<int>(asked_for("VELDRA_POWER_LOSSES", 24));
  const int all = changes;
  const int step = std::max(1, all / moments);
  std::vector<std::unique_ptr<TempDirectory>> disks;
  run([&] {
    if (++changes % step != 0) return;
    disks.push_back(std::make_unique<TempDirectory>());
    copy_files(*disks.back());
    vfs.save_as_after_power_loss(disks.back()->path(), random);
  });
  for (std::size_t i = 0; i < disks.size() && !HasFailure(); ++i) {
    SCOPED_TRACE("at change " + std::to_string((i + 1) * static_cast<std::size_t>(step)) + " of " +
                 std::to_string(all));

    expect_whole(index_in(disks[i]->path()));
    expect_works(index_in(disks[i]->path()));
  }
  measured("loss of power", GetParam().name,
           std::to_string(disks.size()) + "||" + std::to_string(HasFailure() ? 1 : 0));
}

INSTANTIATE_TEST_SUITE_P(Operations, PowerLossTest, testing::ValuesIn(writing_operations()),
                         name_of);

}  // namespace
}  // namespace veldra
