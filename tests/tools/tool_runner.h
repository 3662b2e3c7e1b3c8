#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_directory.h"
#include "veldra-index/child_process.h"

namespace veldra::tool {

/// How a run of the program ended.
struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

/// A small tree of files, and the real program run on it.
class ToolTree {
 public:
  std::filesystem::path path(std::string_view name) const { return _directory / name; }
  std::filesystem::path index() const { return path("memory/codebase-index/index.db"); }

  bool holds_nothing_beside_the_index() const;

  /// Writes a file, its folders too, and dates it a minute back, so that its stamp is settled.
  void write(std::string_view name, std::string_view content) const;

  ToolRun run(const std::vector<std::string>& arguments) const;
  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments) const;

  /// A run that must succeed and answer in JSON.
  nlohmann::json json(std::vector<std::string> arguments) const;
  /// The rows of a query, each as its values joined with "|".
  std::vector<std::string> rows(const std::string& query) const;

  /// Puts a program of its own before the real ctags: it tells the version `version`, gives one
  /// symbol per file, named after it, ends without an answer at files named crash*, and answers
  /// nothing at all for a file named hang*.
  void use_stand_in_ctags(const std::string& version = "5.9.0");

 private:
  std::vector<std::string> _command(const std::vector<std::string>& arguments) const;

  TempDirectory _directory;
  TempDirectory _beside;  // standard error, the stand-in
  std::string _path_prefix;
};

/// Waits until `condition` holds, 20 s at most; false when it never did.
bool wait_until(const std::function<bool()>& condition);

std::string read_text(const std::filesystem::path& file);

}  // namespace veldra::tool
