// The file system is asked by path, links followed, and its errors carry errno.
#include "veldra/platform/disk.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cstdlib>
#include <fstream>

#include "support/environment.h"
#include "support/temp_directory.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

TEST(DiskTest, SizesAndVolumesAreThoseBehindALink) {
  const TempDirectory directory;
  std::ofstream(directory / "file") << std::string(4097, 'x');
  std::filesystem::create_symlink("file", directory / "link");
  std::filesystem::create_directory_symlink("/proc", directory / "other_volume");
  EXPECT_EQ(disk().file_size(directory / "link"), 4097);
  EXPECT_EQ(disk().device(directory / "link"), disk().device(directory.path()));
  EXPECT_NE(disk().device(directory / "other_volume"), disk().device(directory.path()));
}

TEST(DiskTest, FreeSpaceIsWhatAnUnprivilegedProcessMayUse) {
  const TempDirectory directory;
  struct statvfs volume = {};
  ASSERT_EQ(::statvfs(directory.path().c_str(), &volume), 0);
  const auto expected = static_cast<double>(volume.f_bavail) * static_cast<double>(volume.f_frsize);
  // Others write to the volume meanwhile.
  EXPECT_NEAR(static_cast<double>(disk().free_bytes(directory.path())), expected, 1e9);
}

TEST(DiskTest, ErrorsCarryErrnoAndNameThePath) {
  const TempDirectory directory;
  const std::filesystem::path missing = directory / "missing";
  const auto fails = [&](auto operation) {
    try {
      operation();
      ADD_FAILURE() << "nothing was thrown for a path where nothing is";
    } catch (const OSError& error) {
      EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
      EXPECT_NE(std::string(error.what()).find(missing.string()), std::string::npos);
    }
  };
  fails([&] { disk().file_size(missing); });
  fails([&] { disk().device(missing); });
  fails([&] { disk().free_bytes(missing); });
}

TEST(DiskTest, TheTemporaryDirectoryIsTheFirstUsableOne) {
  const TempDirectory directory;
  std::ofstream(directory / "file") << "no directory";
  const std::string usable = directory.path().string();
  const std::string file = (directory / "file").string();
  struct Case {
    const char* tmpdir;
    const char* temp;
    const char* tmp;
    std::string expected;
  };
  const Case cases[] = {
      {usable.c_str(), "/var/tmp", nullptr, usable}, {nullptr, usable.c_str(), "/var/tmp", usable},
      {"", "/no/such", usable.c_str(), usable},      {file.c_str(), nullptr, nullptr, "/tmp"},
      {nullptr, nullptr, nullptr, "/tmp"},
  };
  for (const auto& [tmpdir, temp, tmp, expected] : cases) {
    const EnvironmentVariable first("TMPDIR", tmpdir);
    const EnvironmentVariable second("TEMP", temp);
    const EnvironmentVariable third("TMP", tmp);
    EXPECT_EQ(disk().temporary_directory(), expected);
  }
}

}  // namespace
}  // namespace veldra
