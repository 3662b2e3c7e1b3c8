// A process that is killed, and a machine that loses power, leave a whole file: the state before
// the operation, one that it commits on its way, or the one after it.
#include <random>
#include <string>
#include <thread>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/child_process.h"
#include "support/fault_vfs.h"

namespace veldra {
namespace {

using Clock = std::chrono::steady_clock;

class DeathTest : public OperationTest {
 protected:
  DeathTest() : seed(asked_for("VELDRA_SEED", static_cast<long>(std::random_device()()))) {}

  const long seed;
  std::mt19937 random{static_cast<unsigned>(seed)};
};

using KillTest = DeathTest;

TEST_P(KillTest, LeavesAWholeFile) {
  note_states();
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  TempDirectory scratch;
  copy_files(scratch);
  Database db(index_in(scratch.path()));
  prepare(db);
  const Clock::time_point started = Clock::now();
  GetParam().run(db);
  const std::chrono::duration<double> whole_run = Clock::now() - started;
  db.close();

  std::uniform_real_distribution<> part(0, 1);
  const long kills = asked_for("VELDRA_KILLS", 8);
  int ended = 0;
  for (long kill = 0; kill < kills && !HasFailure(); ++kill) {
    TempDirectory directory;
    copy_files(directory);
    const std::filesystem::path index = index_in(directory.path());
    ChildProcess child([&](const ChildProcess::Tell& tell) {
      Database own(index);
      prepare(own);
      tell("ready ");
      GetParam().run(own);
      tell("done");
    });
    std::string told = child.hear();
    ASSERT_TRUE(told.starts_with("ready "));
    std::this_thread::sleep_for(whole_run * part(random));
    child.kill();
    told += child.hear();
    if (told == "ready done") {
      ++ended;
      EXPECT_EQ(look_at(index).content, end) << "lost what was acknowledged";
    }
    expect_whole(index);
    expect_works(index);
  }
  measured("kill", GetParam().name, kills, std::to_string(ended));
}

INSTANTIATE_TEST_SUITE_P(Operations, KillTest, testing::ValuesIn(operations_that(change_the_file)),
                         name_of);

using PowerLossTest = DeathTest;

TEST_P(PowerLossTest, LeavesAWholeFile) {
  note_states();
  SCOPED_TRACE("VELDRA_SEED=" + std::to_string(seed));
  const auto run = [&](const std::function<void(const FaultVfs& vfs)>& before_change) {
    TempDirectory directory;
    copy_files(directory);
    FaultVfs vfs;
    vfs.watch_changes(directory.path(), [&] { before_change(vfs); });
    Database db(index_in(directory.path()));
    prepare(db);
    GetParam().run(db);
    db.close();
  };
  long changes = 0;
  run([&](const FaultVfs&) { ++changes; });
  const long step = std::max(1L, changes / asked_for("VELDRA_POWER_LOSSES", 24));
  std::vector<std::unique_ptr<TempDirectory>> disks;
  long change = 0;
  run([&](const FaultVfs& vfs) {
    if (++change % step != 0) return;
    disks.push_back(std::make_unique<TempDirectory>());
    vfs.save_as_after_power_loss(disks.back()->path(), random);
  });
  for (std::size_t i = 0; i < disks.size() && !HasFailure(); ++i) {
    SCOPED_TRACE("loss " + std::to_string(i + 1) + " of " + std::to_string(disks.size()));
    expect_whole(index_in(disks[i]->path()));
    expect_works(index_in(disks[i]->path()));
  }
  measured("loss of power", GetParam().name, static_cast<long>(disks.size()), "");
}

INSTANTIATE_TEST_SUITE_P(Operations, PowerLossTest,
                         testing::ValuesIn(operations_that(change_the_file)), name_of);

}  // namespace
}  // namespace veldra
