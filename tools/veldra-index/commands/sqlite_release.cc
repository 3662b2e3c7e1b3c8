// What is known about releases of SQLite.
#include "veldra-index/commands/sqlite_release.h"

#include <array>
#include <charconv>

namespace veldra::tool {

bool has_wal_reset_fault(std::string_view version) {
  using Release = std::array<int, 3>;
  Release release{};
  for (int& part : release) {
    std::from_chars(version.data(), version.data() + version.size(), part);
    version.remove_prefix(std::min(version.find('.'), version.size() - 1) + 1);
  }
  if (release == Release{3, 44, 6} || release == Release{3, 50, 7}) return false;
  return release >= Release{3, 7, 0} && release <= Release{3, 51, 2};
}

}  // namespace veldra::tool
