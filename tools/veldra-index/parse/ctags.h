#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

/// What ctags says of some files.
struct CtagsAnswer {
  /// False when ctags ended early, or when it is not certain whose tags are whose: ask for fewer of
  /// the files. The answer of a single file then holds the whole lines that ctags gave.
  bool complete = false;
  bool timed_out = false;         // it is not complete because ctags took too long
  std::vector<std::string> tags;  // of each file: one JSON object per line
};

/// Runs one ctags in `root` over `paths`, which are UTF-8 and relative to it, and fit on a command
/// line, for `patience` at most. Throws `std::system_error` when it cannot be started.
///
/// Thread safety: any thread.
CtagsAnswer ask_ctags(const std::filesystem::path& root, std::span<const std::string_view> paths,
                      std::chrono::milliseconds patience);

}  // namespace veldra::tool
