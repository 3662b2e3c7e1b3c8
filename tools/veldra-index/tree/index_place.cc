// Where a repository and its index are.
#include "veldra-index/tree/index_place.h"

#include <algorithm>
#include <string>
#include <system_error>

#include "veldra-index/terminal/failure.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view INDEX_FOLDER = "memory/codebase-index";
constexpr std::string_view INDEX_NAME = "index.db";

fs::path with_suffix(fs::path path, std::string_view suffix) {
  path += suffix;
  return path;
}

}  // namespace

fs::path IndexPlace::staging() const {
  return with_suffix(db, ".staging");
}
fs::path IndexPlace::lock() const {
  return with_suffix(db, ".lock");
}
std::vector<fs::path> IndexPlace::passing_files() const {
  return {staging(), with_suffix(staging(), "-wal"), lock()};
}

bool IndexPlace::owns_folder(std::string_view path) const {
  return path == INDEX_FOLDER;
}

bool IndexPlace::owns(std::string_view path) const {
  if (path.starts_with(std::string(INDEX_FOLDER) + "/")) return true;
  const std::string full = (root / path).string();
  if (!full.starts_with(db.string())) return false;
  const std::string_view rest = std::string_view(full).substr(db.string().size());
  static constexpr std::string_view SUFFIXES[] = {"",         "-wal",         "-shm", "-journal",
                                                  ".staging", ".staging-wal", ".lock"};
  return std::find(std::begin(SUFFIXES), std::end(SUFFIXES), rest) != std::end(SUFFIXES);
}

IndexPlace find_index(const fs::path& directory, const std::optional<fs::path>& db) {
  std::error_code error;
  const fs::path root = fs::canonical(directory, error);
  if (error) {
    throw Failure(directory.string() + ": " + error.message() +
                  "; name the repository's directory");
  }
  if (!fs::is_directory(root, error)) {
    throw Failure(directory.string() + " is not a directory; name the repository's directory");
  }
  if (!db) return {root, root / INDEX_FOLDER / INDEX_NAME};
  if (fs::is_directory(*db, error)) {
    throw Failure(db->string() + " is a directory; --db names a file");
  }
  return {root, fs::weakly_canonical(fs::absolute(*db), error)};
}

}  // namespace veldra::tool
