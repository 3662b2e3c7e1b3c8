// Universal Ctags: which one is there, and its interactive mode.
#include "veldra-index/ctags.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

#include "veldra-index/failure.h"
#include "veldra-index/source_file.h"

namespace veldra::tool {
namespace {

constexpr std::size_t BLOCK_BYTES = 256 * 1024;
constexpr std::string_view END_OF_REPLY = R"({"_type": "completed")";
constexpr std::string_view HOW_TO_INSTALL =
    "install Universal Ctags with JSON output (Debian: apt-get install universal-ctags)";

/// What this tool makes of a tag: raised when that changes, so that every file is parsed again.
constexpr std::int64_t IMPORTER_VERSION = 1;

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
  if (name != 0 || banner.find("+json") == std::string::npos ||
      banner.find("+interactive") == std::string::npos) {
    throw Failure("ctags in the PATH is not a usable one: " + std::string(HOW_TO_INSTALL));
  }
  CtagsProgram program;
  program.version =
      banner.substr(NAME.size(), banner.find_first_of(",( \n", NAME.size()) - NAME.size());
  std::istringstream languages(run_ctags("--list-languages"));
  for (std::string line; std::getline(languages, line);) {
    if (!line.empty() && line.find(' ') == std::string::npos) program.languages.push_back(line);
  }
  return program;
}

std::map<std::string, std::int64_t> extractor_versions(const CtagsProgram& program) {
  std::int64_t version = IMPORTER_VERSION;
  std::istringstream numbers(program.version);
  std::string number;
  for (int part = 0; part < 3; ++part) {
    std::int64_t value = 0;
    if (std::getline(numbers, number, '.')) {
      std::from_chars(number.data(), number.data() + number.size(), value);
    }
    version = version * 1000 + value;
  }
  std::map<std::string, std::int64_t> versions;
  for (const std::string& language : program.languages) versions[language] = version;
  versions[std::string(NO_LANGUAGE)] = static_cast<std::int64_t>(program.languages.size());
  return versions;
}

CtagsProcess::CtagsProcess(const std::filesystem::path& root)
    // Only the fields in use; no option files: those of a repository are not ours to trust.
    : _process({"ctags", "--quiet", "--options=NONE", "--_interactive=default", "--sort=no",
                "--fields=Nlnzser", "--extras=+rf"},
               root),
      _block(BLOCK_BYTES) {
  std::string greeting;
  while (_pending.find('\n') == std::string::npos) {
    const std::size_t count = _process.read(_block);
    if (count == 0) return;  // the first request finds it gone
    _pending.append(_block.data(), count);
  }
  _pending.erase(0, _pending.find('\n') + 1);
}

void CtagsProcess::request(std::string_view path) {
  const nlohmann::json command = {{"command", "generate-tags"}, {"filename", path}};
  // A process that is gone is noticed by the reader of the answer.
  (void)_process.write(command.dump() + "\n");
}

bool CtagsProcess::read_reply(std::string& reply) {
  reply.clear();
  std::size_t line = 0;
  for (;;) {
    for (std::size_t end = 0; (end = _pending.find('\n', line)) != std::string::npos;
         line = end + 1) {
      if (_pending.compare(line, END_OF_REPLY.size(), END_OF_REPLY) != 0) continue;
      reply.assign(_pending, 0, line);
      _pending.erase(0, end + 1);
      return true;
    }
    const std::size_t count = _process.read(_block);
    if (count == 0) {
      reply.assign(_pending, 0, line);
      return false;
    }
    _pending.append(_block.data(), count);
  }
}

}  // namespace veldra::tool
