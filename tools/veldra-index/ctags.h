#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "veldra-index/child_process.h"

namespace veldra::tool {

/// What the installed Universal Ctags is and knows.
struct CtagsProgram {
  std::string version;                 // "5.9.0"
  std::vector<std::string> languages;  // that it has a parser for and uses
};

/// Throws `Failure` when there is none, or one that cannot do what is needed.
CtagsProgram inspect_ctags();

/// The version of each language's extractor, as the index records it: that of the program and of
/// what this tool makes of its tags. Files without a language count as one that changes with the
/// list of languages, so that a new parser reaches them too.
std::map<std::string, std::int64_t> extractor_versions(const CtagsProgram& program);

/// One running ctags, which is asked for the tags of one file after the other.
///
///     CtagsProcess ctags(root);
///     ctags.request("src/a.cc");
///     std::string tags;
///     while (!ctags.read_reply(tags)) restart();
///
/// It runs in the repository's root, in its interactive mode: an answer has an end, so tags need
/// not repeat the path, a file without tags is known as done, and one that kills ctags is known by
/// name.
///
/// Thread safety: one thread per object.
class CtagsProcess {
 public:
  explicit CtagsProcess(const std::filesystem::path& root);

  /// Asks for a file's tags; answers come in the order of the requests. Keep the requests that are
  /// not answered few (a pipe holds 64 KiB of them). `path` is UTF-8.
  void request(std::string_view path);

  /// Puts the answer to the oldest request into `reply`: one JSON object per line. False when ctags
  /// ended before its answer was complete; `reply` then holds the complete lines of what it gave.
  bool read_reply(std::string& reply);

 private:
  ChildProcess _process;
  std::vector<char> _block;
  std::string _pending;  // read, not yet part of an answer
};

}  // namespace veldra::tool
