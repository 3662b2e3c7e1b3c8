#include "tools/tool_runner.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace veldra::tool {
namespace {

constexpr std::string_view STAND_IN = R"sh(#!/bin/sh
case "$*" in
*--version*) echo "Universal Ctags VERSION, Copyright"; echo "  Optional: +json, +interactive"; exit ;;
*--list-languages*) printf 'C\nPython\n'; exit ;;
esac
echo '{"_type": "program"}'
while read -r line; do
  file=$(echo "$line" | sed 's/.*"filename":"\([^"]*\)".*/\1/')
  name=$(basename "$file")
  case "$name" in
  crash*) exit 3 ;;
  hang*) exec cat > /dev/null ;;
  *.py) language=Python ;;
  *) language=C ;;
  esac
  printf '{"_type": "tag", "name": "%s", "language": "%s", "line": 1, "kind": "file", "roles": "def"}\n' "$name" $language
  printf '{"_type": "tag", "name": "in_%s", "language": "%s", "line": 1, "kind": "function", "roles": "def"}\n' "$name" $language
  echo '{"_type": "completed", "command": "generate-tags"}'
done
)sh";

}  // namespace

bool ToolTree::holds_nothing_beside_the_index() const {
  const std::filesystem::directory_iterator files(index().parent_path());
  return std::distance(begin(files), end(files)) == 1;
}

void ToolTree::write(std::string_view name, std::string_view content) const {
  std::filesystem::create_directories(path(name).parent_path());
  std::ofstream(path(name), std::ios::binary) << content;
  std::filesystem::last_write_time(
      path(name), std::filesystem::file_time_type::clock::now() - std::chrono::minutes(1));
}

std::vector<std::string> ToolTree::_command(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command = {
      "sh", "-c",
      "PATH=\"" + _path_prefix + "$PATH\" exec \"$@\" 2>\"" + (_beside / "err").string() + "\"",
      "sh", VELDRA_INDEX_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ToolRun ToolTree::run(const std::vector<std::string>& arguments) const {
  const Captured captured = run_program(_command(arguments), _directory.path());
  return {captured.status, captured.output, read_text(_beside / "err")};
}

std::unique_ptr<ChildProcess> ToolTree::start(const std::vector<std::string>& arguments) const {
  return std::make_unique<ChildProcess>(_command(arguments), _directory.path());
}

nlohmann::json ToolTree::json(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), "--json");
  const ToolRun done = run(arguments);
  EXPECT_EQ(done.status, 0) << done.err;
  return nlohmann::json::parse(done.out, nullptr, false);
}

std::vector<std::string> ToolTree::rows(const std::string& query) const {
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

void ToolTree::use_stand_in_ctags(const std::string& version) {
  std::string script(STAND_IN);
  script.replace(script.find("VERSION"), 7, version);
  std::ofstream(_beside / "ctags") << script;
  std::filesystem::permissions(_beside / "ctags", std::filesystem::perms::owner_all);
  _path_prefix = _beside.path().string() + ":";
}

bool wait_until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string read_text(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator(stream), {}};
}

}  // namespace veldra::tool
