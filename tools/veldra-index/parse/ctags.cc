// Universal Ctags: which one is there, and what it says of files.
#include "veldra-index/parse/ctags.h"

#include <charconv>
#include <sstream>
#include <system_error>

#include "veldra-index/parse/tag_division.h"
#include "veldra-index/process/child_process.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/tree/source_file.h"

namespace veldra::tool {
namespace {

constexpr std::string_view HOW_TO_INSTALL =
    "install Universal Ctags with JSON output (Debian: apt-get install universal-ctags)";

/// What this tool makes of a file and its tags: raised when that changes, so that every file is
/// parsed again.
constexpr std::int64_t IMPORTER_VERSION = 4;

std::string run_ctags(const std::string& option) {
  try {
    const Captured captured = run_program({"ctags", "--quiet", "--options=NONE", option});
    if (captured.status == 0) return captured.output;
  } catch (const std::system_error&) {
    throw Failure("ctags was not found: " + std::string(HOW_TO_INSTALL));
  }
  throw Failure("ctags in the PATH is not a usable one: " + std::string(HOW_TO_INSTALL));
}

}  // namespace

CtagsProgram inspect_ctags() {
  static constexpr std::string_view NAME = "Universal Ctags ";
  const std::string banner = run_ctags("--version");
  const std::size_t name = banner.find(NAME);
  if (name != 0 || banner.find("+json") == std::string::npos)
    throw Failure("ctags in the PATH is not a usable one: " + std::string(HOW_TO_INSTALL));
  CtagsProgram program;
  program.version =
      banner.substr(NAME.size(), banner.find_first_of(",( \n", NAME.size()) - NAME.size());
  std::istringstream languages(run_ctags("--list-languages"));
  for (std::string line; std::getline(languages, line);)
    if (!line.empty() && line.find(' ') == std::string::npos) program.languages.push_back(line);
  return program;
}

std::map<std::string, std::int64_t> extractor_versions(const CtagsProgram& program) {
  std::int64_t version = IMPORTER_VERSION;
  std::istringstream numbers(program.version);
  std::string number;
  for (int part = 0; part < 3; ++part) {
    std::int64_t value = 0;
    if (std::getline(numbers, number, '.'))
      std::from_chars(number.data(), number.data() + number.size(), value);
    version = version * 1000 + value;
  }
  std::map<std::string, std::int64_t> versions;
  for (const std::string& language : program.languages) versions[language] = version;
  versions[std::string(NO_LANGUAGE)] =
      IMPORTER_VERSION * 1000 + static_cast<std::int64_t>(program.languages.size());
  return versions;
}

CtagsAnswer ask_ctags(const std::filesystem::path& root, std::span<const std::string_view> paths,
                      std::chrono::milliseconds patience) {
  // Only the fields in use; no option files: those of a repository are not ours to trust. The
  // output is given by its name, since what ctags takes for its standard output gets a copy, made
  // byte by byte, of a temporary file.
  std::vector<std::string> arguments = {
      "ctags", "--quiet",         "--options=NONE",   "--output-format=json", "--sort=no",
      "-f",    "/proc/self/fd/1", "--fields=Nlnzser", "--extras=+rf-p"};
  for (const std::string_view path : paths)  // one that begins with a dash would be an option
    arguments.push_back((path.starts_with('-') ? "./" : "") + std::string(path));
  Captured captured = run_program(arguments, root, patience);

  CtagsAnswer answer;
  answer.timed_out = captured.timed_out;
  if (paths.size() == 1) {
    answer.complete = captured.status == 0;
    if (!answer.complete) captured.output.resize(captured.output.rfind('\n') + 1);
    answer.tags.push_back(std::move(captured.output));
  } else if (captured.status == 0) {
    if (const auto divided = divide_tags(captured.output, paths)) {
      answer.complete = true;
      answer.tags.assign(divided->begin(), divided->end());
    }
  }
  return answer;
}

}  // namespace veldra::tool
