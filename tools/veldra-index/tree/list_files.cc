// Listing the files of a repository.
#include "veldra-index/tree/list_files.h"

#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "veldra-index/process/child_process.h"
#include "veldra-index/process/interrupt.h"

namespace veldra::tool {
namespace {

namespace fs = std::filesystem;

/// What env answers for a program that is not there
/// (https://www.gnu.org/software/coreutils/manual/html_node/env-invocation.html).
constexpr int NO_SUCH_PROGRAM = 127;

struct GitAnswer {
  bool is_installed = true;
  /// Relative to the root; none when this is no checkout that git lists.
  std::optional<std::vector<std::string>> paths;
};

GitAnswer ask_git(const fs::path& root) {
  try {
    // A hook of another repository's git may be what runs this program.
    const std::vector<std::string> git = {
        "env", "-u", "GIT_DIR",    "-u", "GIT_WORK_TREE", "-u", "GIT_INDEX_FILE",
        "git", "-C", root.string()};
    const auto run = [&git](std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), git.begin(), git.end());
      return run_program(arguments);
    };
    const Captured inside = run({"rev-parse", "--is-inside-work-tree"});
    if (inside.status == NO_SUCH_PROGRAM) return {.is_installed = false, .paths = {}};
    if (inside.output != "true\n" || run({"check-ignore", "--quiet", "."}).status == 0) return {};
    const Captured list = run({"ls-files", "-z", "--cached", "--others", "--exclude-standard"});
    if (list.status != 0) return {};
    std::vector<std::string> paths;
    for (std::size_t begin = 0; begin < list.output.size();) {
      const std::size_t end = std::min(list.output.find('\0', begin), list.output.size());
      paths.push_back(list.output.substr(begin, end - begin));
      begin = end + 1;
    }
    return {.paths = std::move(paths)};
  } catch (const std::system_error&) {
    return {};  // no processes to be had
  }
}

class Lister {
 public:
  Lister(const IndexPlace& place, Tree& tree)
      : _place(place), _tree(tree), _has_index(::stat(place.db.c_str(), &_index) == 0) {}

  void add(const std::string& path) {
    check_interrupted();
    struct stat status {};
    if (::lstat((_place.root / path).c_str(), &status) != 0) return;  // tracked, but gone
    if (!S_ISREG(status.st_mode) || _place.owns(path) || _is_index(status)) return;
    _tree.files.push_back({path, status.st_size,
                           static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 +
                               status.st_mtim.tv_nsec});
  }

  void add_folder(const std::string& folder) {
    std::error_code error;
    fs::directory_iterator entries(_place.root / folder, error);
    if (error) {
      _tree.unreadable.push_back({folder.empty() ? "." : folder, error.message()});
      return;
    }
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
      const std::string name = entries->path().filename().string();
      if (name.starts_with('.')) continue;
      std::string path = folder;
      if (!path.empty()) path += '/';
      path += name;
      if (entries->is_symlink(error)) continue;
      if (entries->is_directory(error)) {
        if (!_place.owns_folder(path)) add_folder(path);
      } else {
        add(path);
      }
    }
  }

 private:
  /// The index under another name: a hard link.
  bool _is_index(const struct stat& status) const {
    return _has_index && status.st_dev == _index.st_dev && status.st_ino == _index.st_ino;
  }

  const IndexPlace& _place;
  Tree& _tree;
  struct stat _index {};
  const bool _has_index;
};

}  // namespace

std::vector<std::string_view> paths_of(const Tree& tree) {
  std::vector<std::string_view> paths;
  paths.reserve(tree.files.size());
  for (const SourcePath& file : tree.files) paths.emplace_back(file.path);
  return paths;
}

Tree walk_tree(const IndexPlace& place) {
  Tree tree;
  Lister lister(place, tree);
  if (const GitAnswer git = ask_git(place.root); git.paths) {
    tree.from_git = true;
    for (const std::string& path : *git.paths) lister.add(path);
  } else {
    std::error_code error;
    if (fs::exists(place.root / ".git", error)) {
      spdlog::warn(
          "{}: all files that are not hidden are indexed, ignored ones too",
          git.is_installed
              ? fmt::format("git does not list {0} (see `git -C {0} status`)", place.root.string())
              : "git is not installed, which knows the files of this checkout");
    }
    lister.add_folder("");
  }
  const auto by_path = [](const SourcePath& left, const SourcePath& right) {
    return left.path < right.path;
  };
  const auto same_path = [](const SourcePath& left, const SourcePath& right) {
    return left.path == right.path;
  };
  std::sort(tree.files.begin(), tree.files.end(), by_path);
  // git names a file once per side of an unresolved merge.
  tree.files.erase(std::unique(tree.files.begin(), tree.files.end(), same_path), tree.files.end());
  return tree;
}

}  // namespace veldra::tool
