// Where a repository and its index are.
#include "veldra-index/tree/index_place.h"

#include <algorithm>
#include <fstream>
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
fs::path IndexPlace::damaged() const {
  return with_suffix(db, ".damaged");
}
bool IndexPlace::is_usual() const {
  return db == root / INDEX_FOLDER / INDEX_NAME;
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
  static constexpr std::string_view SUFFIXES[] = {"",         "-wal",         "-shm",  "-journal",
                                                  ".staging", ".staging-wal", ".lock", ".damaged"};
  return std::find(std::begin(SUFFIXES), std::end(SUFFIXES), rest) != std::end(SUFFIXES);
}

IndexPlace find_index(const fs::path& directory, const std::optional<fs::path>& db) {
  std::error_code error;
  const fs::path root = fs::canonical(directory, error);
  if (error) {
    throw Failure(directory.string() + ": " + error.message() +
                  "; name the repository's directory");
  }
  if (!fs::is_directory(root, error))
    throw Failure(directory.string() + " is not a directory; name the repository's directory");
  if (!db) return {root, root / INDEX_FOLDER / INDEX_NAME};
  if (fs::is_directory(*db, error))
    throw Failure(db->string() + " is a directory; --db names a file");
  return {root, fs::weakly_canonical(fs::absolute(*db), error)};
}

void make_folder(const IndexPlace& place) {
  std::error_code error;
  const fs::path folder = place.db.parent_path();
  fs::create_directories(folder, error);
  const fs::path ignored = folder / ".gitignore";
  if (place.is_usual() && !fs::exists(ignored, error))
    std::ofstream(ignored) << "# An index of the repository, made from its files.\n*\n";
}

FoundIndex index_of(const fs::path& path, const std::optional<fs::path>& db) {
  if (db) return {find_index(path, db), {}};
  std::error_code error;
  const fs::path start = fs::canonical(path, error);
  if (error) {
    throw Failure(path.string() + ": " + error.message() +
                  "; name a repository, or a folder or file in one");
  }
  const bool is_folder = fs::is_directory(start, error);
  fs::path checkout = is_folder ? start : start.parent_path();
  for (fs::path root = checkout;; root = root.parent_path()) {
    if (fs::exists(root / INDEX_FOLDER / INDEX_NAME, error)) {
      const fs::path below = start.lexically_relative(root);
      return {find_index(root, {}), below == "." ? std::string() : below.generic_string()};
    }
    if (fs::exists(root / ".git", error)) {
      checkout = root;
      break;
    }
    if (!root.has_relative_path()) break;
  }
  return {find_index(checkout, {}), {}};
}

}  // namespace veldra::tool
