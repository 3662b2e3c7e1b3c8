#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/temp_directory.h"
#include "veldra-index/process/child_process.h"

namespace veldra::tool {

inline std::string read_text(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator(stream), {}};
}

/// Waits until `condition` holds, 20 s at most; false when it never did.
inline bool wait_until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

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

  bool holds_nothing_beside_the_index() const {
    const std::filesystem::directory_iterator files(index().parent_path());
    return std::distance(begin(files), end(files)) == 2;  // it and .gitignore
  }

  /// Writes a file, its folders too, and dates it a minute back, so that its stamp is settled.
  void write(std::string_view name, std::string_view content) const {
    std::filesystem::create_directories(path(name).parent_path());
    std::ofstream(path(name), std::ios::binary) << content;
    std::filesystem::last_write_time(
        path(name), std::filesystem::file_time_type::clock::now() - std::chrono::minutes(1));
  }

  ToolRun run(const std::vector<std::string>& arguments) const {
    const std::filesystem::path err = _beside / "err";
    const Captured captured = run_program(_command(arguments, err), _directory.path());
    return {captured.status, captured.output, read_text(err)};
  }
  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments) const {
    return std::make_unique<ChildProcess>(_command(arguments, "/dev/null"), _directory.path());
  }

  /// A run that must succeed and answer in JSON.
  nlohmann::json json(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "--json");
    const ToolRun done = run(arguments);
    EXPECT_EQ(done.status, 0) << done.err;
    return nlohmann::json::parse(done.out, nullptr, false);
  }

  /// The rows of a query, each as its values joined with "|".
  std::vector<std::string> rows(const std::string& query) const {
    std::vector<std::string> lines;
    const nlohmann::json answer = json({"sql", query});
    for (const auto& row : answer["rows"]) {
      std::string line;
      for (const auto& cell : row) {
        const std::string text = cell.is_string() ? cell.get<std::string>() : cell.dump();
        line += (line.empty() ? "" : "|") + text;
      }
      lines.push_back(line);
    }
    return lines;
  }

  /// Puts a program of its own before the real ctags: it tells the version `version`, gives one
  /// symbol per file, named after it, ends without an answer at files named crash*, and answers
  /// nothing for a minute at files named hang*.
  void use_stand_in_ctags(const std::string& version = "5.9.0") {
    std::string script(STAND_IN);
    script.replace(script.find("VERSION"), 7, version);
    std::ofstream(_beside / "ctags") << script;
    std::filesystem::permissions(_beside / "ctags", std::filesystem::perms::owner_all);
    _path_prefix = _beside.path().string() + ":";
  }

 private:
  static constexpr std::string_view STAND_IN = R"sh(#!/bin/sh
case "$*" in
*--version*) echo "Universal Ctags VERSION, Copyright"; echo "  Optional: +json"; exit ;;
*--list-languages*) printf 'C\nPython\n'; exit ;;
esac
for file; do
  case "$file" in -* | /proc/*) continue ;; esac
  name=${file##*/}
  case "$name" in
  crash*) exit 3 ;;
  hang*) exec sleep 60 ;;
  *.py) language=Python ;;
  *) language=C ;;
  esac
  for tag in "in_$name function" "$name file"; do
    printf '{"_type": "tag", "name": "%s", "language": "%s", "line": 1, "kind": "%s", "roles": "def"}\n' \
      "${tag% *}" $language "${tag#* }"
  done
done
)sh";

  std::vector<std::string> _command(const std::vector<std::string>& arguments,
                                    const std::filesystem::path& err) const {
    std::vector<std::string> command = {
        "sh", "-c", "PATH=\"" + _path_prefix + "$PATH\" exec \"$@\" 2>\"" + err.string() + "\"",
        "sh", VELDRA_INDEX_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }

  TempDirectory _directory;
  TempDirectory _beside;  // standard error, the stand-in
  std::string _path_prefix;
};

}  // namespace veldra::tool
