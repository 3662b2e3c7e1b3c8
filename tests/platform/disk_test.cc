// The file system is asked by path, links followed, and its errors carry errno.
#include "veldra/platform/disk.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <fstream>

#include "support/environment.h"
#include "support/temp_directory.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

TEST(DiskTest, MeasuresWhatLiesBehindALinkAndNamesAMissingPath) {
  const TempDirectory directory;
  std::ofstream(directory / "file") << std::string(4097, 'x');
  std::filesystem::create_symlink("file", directory / "link");
  std::filesystem::create_directory_symlink("/proc", directory / "other_volume");
  EXPECT_EQ(disk().file_size(directory / "link"), 4097);
  EXPECT_EQ(disk().device(directory / "link"), disk().device(directory.path()));
  EXPECT_NE(disk().device(directory / "other_volume"), disk().device(directory.path()));
  struct statvfs volume = {};
  ASSERT_EQ(::statvfs(directory.path().c_str(), &volume), 0);
  const auto free = static_cast<double>(volume.f_bavail) * static_cast<double>(volume.f_frsize);
  EXPECT_NEAR(static_cast<double>(disk().free_bytes(directory.path())), free, 1e9)
      << "not what an unprivileged process may use";
  try {
    disk().free_bytes(directory / "missing");
    ADD_FAILURE() << "nothing was thrown for a path where nothing is";
  } catch (const OSError& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_NE(std::string(error.what()).find((directory / "missing").string()), std::string::npos)
        << error.what();
  }
}

TEST(DiskTest, TheTemporaryDirectoryIsTheFirstUsableOne) {
  const TempDirectory directory;
  std::ofstream(directory / "file") << "no directory";
  const std::string file = directory / "file";
  const char* const usable = directory.path().c_str();
  const char* const cases[][4] = {{usable, "/var/tmp", nullptr, usable},
                                  {nullptr, usable, "/var/tmp", usable},
                                  {"", "/no/such", usable, usable},
                                  {file.c_str(), nullptr, nullptr, "/tmp"}};
  for (const auto& [tmpdir, temp, tmp, expected] : cases) {
    const EnvironmentVariable first("TMPDIR", tmpdir);
    const EnvironmentVariable second("TEMP", temp);
    const EnvironmentVariable third("TMP", tmp);
    EXPECT_EQ(disk().temporary_directory(), expected);
  }
}

}  // namespace
}  // namespace veldra
