// The threads of a pass: each reads files, has them parsed by its ctags and hands them on.
#include "veldra-index/parse/parse_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>
#include <vector>

#include "veldra-index/parse/batches.h"
#include "veldra-index/parse/ctags.h"
#include "veldra-index/parse/import_scan.h"
#include "veldra-index/parse/ready_files.h"
#include "veldra-index/parse/tag_import.h"
#include "veldra-index/process/child_process.h"
#include "veldra-index/process/interrupt.h"
#include "veldra/storage/database.h"

namespace veldra::tool {
namespace {

/// Of the time for one file, what the halves of a batch get that took too long.
constexpr int SHARE_AFTER_TIMEOUT = 8;

/// One thread's share of a pass.
class Worker {
 public:
  Worker(const std::filesystem::path& root, std::chrono::milliseconds per_file, ReadyFiles& ready)
      : _root(root), _per_file(per_file), _ready(ready) {}

  /// False when the consumer wants no more.
  bool run(std::span<const PassFile> batch) {
    std::vector<std::unique_ptr<ParsedFile>> to_parse;
    for (const PassFile& pass_file : batch) {
      std::unique_ptr<ParsedFile> file = _read(pass_file);
      if (!_is_to_parse(*file, pass_file)) {
        if (!_ready.put(std::move(file))) return false;
        continue;
      }
      file->chunks = split_into_chunks(file->source.text, file->source.exact);
      file->lines = file->chunks.empty() ? 0 : file->chunks.back().end_line;
      to_parse.push_back(std::move(file));
    }
    return _parse(to_parse, _per_file);
  }

 private:
  std::unique_ptr<ParsedFile> _read(const PassFile& pass_file) const {
    auto file = std::make_unique<ParsedFile>();
    file->path = pass_file.source.path;
    file->source = read_source(_root, pass_file.source);
    if (file->source.problem) file->problems.push_back(*file->source.problem);
    return file;
  }

  static bool _is_to_parse(ParsedFile& file, const PassFile& pass_file) {
    if (file.source.kind != SourceText::Kind::Text) return false;
    file.same_content = !pass_file.known_stamp.empty() && content_of_stamp(pass_file.known_stamp) ==
                                                              content_of_stamp(file.source.stamp);
    return !file.same_content;
  }

  /// Has one ctags parse all of the files, or, where that fails, one half after the other: a file
  /// that ends ctags is found in few steps. When time ran out, the halves get little of it: what is
  /// not ready then is divided further, and a single file has all of its time again.
  bool _parse(std::span<std::unique_ptr<ParsedFile>> files, std::chrono::milliseconds patience) {
    if (files.empty()) return true;
    std::vector<std::string_view> paths;
    for (const auto& file : files) paths.emplace_back(file->path);
    if (files.size() == 1) patience = _per_file;
    CtagsAnswer answer = ask_ctags(_root, paths, patience);
    check_interrupted();  // ctags was killed, and its files are not to blame
    if (!answer.complete && files.size() > 1) {
      const std::size_t half = files.size() / 2;
      if (answer.timed_out) patience = _per_file / SHARE_AFTER_TIMEOUT;
      return !_ready.stopped() && _parse(files.first(half), patience) &&
             _parse(files.subspan(half), patience);
    }
    for (std::size_t at = 0; at < files.size(); ++at) {
      ParsedFile& file = *files[at];
      file.tags = std::move(answer.tags[at]);
      if (answer.timed_out) {
        file.problems.push_back({"parse_timeout",
                                 fmt::format("ctags took longer than {} s; see --file-limit",
                                             std::chrono::duration<double>(_per_file).count()),
                                 std::nullopt});
      } else if (!answer.complete) {
        file.problems.push_back(
            {file.tags.empty() ? "parse_error" : std::string(PARTIAL_PARSE_ERROR),
             "ctags ended while it parsed this file", std::nullopt});
      }
      read_tags(file);
      std::vector<Import> imports;
      if (scan_imports(file.path, file.source.text, imports)) file.imports = std::move(imports);
      if (!_ready.put(std::move(files[at]))) return false;
    }
    return true;
  }

  const std::filesystem::path& _root;
  const std::chrono::milliseconds _per_file;
  ReadyFiles& _ready;
};

}  // namespace

void parse_files(const std::filesystem::path& root, std::span<const PassFile> files,
                 const ParseLimits& limits,
                 const std::function<void(std::unique_ptr<ParsedFile>)>& consume) {
  const std::vector<std::span<const PassFile>> batches = make_batches(files, limits.jobs);
  const int count =
      static_cast<int>(std::min(batches.size(), static_cast<std::size_t>(limits.jobs)));
  std::atomic<std::size_t> next = 0;
  ReadyFiles ready(count);
  std::vector<std::jthread> threads;
  struct Stop {  // on every path
    ReadyFiles& ready;
    std::vector<std::jthread>& threads;
    ~Stop() {
      ready.stop();
      const NoChildren no_children;  // a thread may wait for its ctags, or be about to start it
      threads.clear();
    }
  } const stop{ready, threads};
  for (int thread = 0; thread < count; ++thread) {
    threads.emplace_back([&] {
      std::exception_ptr error;
      try {
        Worker worker(root, limits.per_file, ready);
        for (std::size_t batch = next++; batch < batches.size(); batch = next++) {
          check_interrupted();
          if (!worker.run(batches[batch])) break;
        }
      } catch (...) {  // rethrown on the calling thread
        error = std::current_exception();
      }
      ready.producer_done(std::move(error));
    });
  }
  while (std::unique_ptr<ParsedFile> file = ready.take()) consume(std::move(file));
  check_interrupted();
}

}  // namespace veldra::tool
