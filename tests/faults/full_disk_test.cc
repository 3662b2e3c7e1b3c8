// A volume that is full: a clear error, the old state, and everything works once there is room.
#include <sys/mount.h>

#include <fstream>

#include "faults/index_file.h"
#include "faults/measured.h"
#include "faults/operations.h"
#include "support/environment.h"
#include "support/fault_vfs.h"

namespace veldra {
namespace {

class FullDiskTest : public OperationTest {
 protected:
  /// The operation was refused for want of room, or had enough.
  void expect_refused_or_done(Database& db) {
    const std::string error = outcome_of([&] { GetParam().run(db); });
    // SQLite calls it an I/O error when the index of the log cannot grow.
    EXPECT_TRUE(error.empty() || error.find("full") != error.npos || error == "disk I/O error")
        << error;
    _refused += error.empty() ? 0 : 1;
  }

  int _refused = 0;
};

TEST_P(FullDiskTest, KeepsTheOldStateWhereverTheRoomEnds) {
  note_states();
  FaultVfs vfs;
  int points = 0;
  for (std::int64_t room = 0;; room += 1 + 4096 + room / 2) {
    SCOPED_TRACE("room for " + std::to_string(room) + " bytes");
    TempDirectory directory;
    copy_files(directory);
    Database db(index_in(directory.path()));
    db.connect();
    vfs.leave_room(room);
    expect_refused_or_done(db);
    const bool was_full = !vfs.injected().empty();
    vfs.heal();
    expect_whole(db.db_path);
    expect_works(db);
    if (!was_full || HasFailure()) break;
    ++points;
  }
  measured("full disk", GetParam().name,
           std::to_string(points) + "|" + std::to_string(_refused) + "|" +
               std::to_string(HasFailure() ? 1 : 0));
}

/// Large enough for what a VACUUM wants to be free, once the filler is gone.
TEST_P(FullDiskTest, KeepsTheOldStateOnARealVolume) {
  TempDirectory volume;
  if (::mount("tmpfs", volume.path().c_str(), "tmpfs", 0, "size=100m") != 0)
    GTEST_SKIP() << "mounting a volume needs root";
  struct Unmount {
    const std::filesystem::path& path;
    ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
  } const unmount{volume.path()};
  const EnvironmentVariable temporary("SQLITE_TMPDIR", volume.path().c_str());
  note_states();
  copy_files(volume);
  {
    Database db(index_in(volume.path()));
    db.connect();
    std::ofstream filler(volume / "filler", std::ios::binary);
    while (filler << std::string(65536, 'x') << std::flush) {
    }
    expect_refused_or_done(db);
    filler.close();
    std::filesystem::remove(volume / "filler");
    expect_whole(db.db_path);
    expect_works(db);
  }
}

std::vector<Operation> operations_that_grow() {
  std::vector<Operation> growing;
  for (const Operation& operation : writing_operations()) {
    if (operation.on_open_database && operation.name != "create_schema" &&
        operation.name != "close")
      growing.push_back(operation);
  }
  return growing;
}

INSTANTIATE_TEST_SUITE_P(Operations, FullDiskTest, testing::ValuesIn(operations_that_grow()),
                         name_of);

}  // namespace
}  // namespace veldra
