// The files of an answer, compared with the index.
#include "veldra-index/index/freshness.h"

#include <sys/stat.h>

#include "veldra-index/tree/source_file.h"
#include "veldra/models/chunk.h"

namespace veldra::tool {
namespace {

/// So many files are looked for before a tree counts as not being at hand.
constexpr std::string_view SOME_FILES = "SELECT path FROM files ORDER BY id LIMIT 20";

/// Its lines, without their ends.
std::vector<std::string> lines_of_text(std::string_view text) {
  std::vector<std::string> lines(1);
  for (const char byte : text)
    if (byte == '\n')
      lines.emplace_back();
    else if (byte != '\r')
      lines.back() += byte;
  return lines;
}

std::optional<SourcePath> stat_of(const std::filesystem::path& root, const std::string& path) {
  struct stat status {};
  if (::lstat((root / path).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return SourcePath{
      path, status.st_size,
      static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

}  // namespace

bool Freshness::has(const std::string& path, std::optional<std::int64_t> line) {
  const File& file = _look_at(path);
  if (file.state == File::State::Same) return true;
  if (file.state == File::State::Gone) return !_tree_is_here();
  if (!line) return true;
  const std::optional<std::string> indexed = _indexed_line(path, *line);
  const auto at = static_cast<std::size_t>(*line - 1);
  return indexed && at < file.lines.size() && file.lines[at] == *indexed;
}

const Freshness::File& Freshness::_look_at(const std::string& path) {
  const auto [place, is_new] = _files.try_emplace(path);
  if (is_new) {
    place->second = _compare(path);
    const bool counts = place->second.state == File::State::Changed ||
                        (place->second.state == File::State::Gone && _tree_is_here());
    _changed += counts ? 1 : 0;
  }
  return place->second;
}

Freshness::File Freshness::_compare(const std::string& path) {
  const auto row =
      _index.fetchone("SELECT hash, coalesce(size, -1) FROM files WHERE path = ?", {path});
  const auto now = stat_of(_index.place().root, path);
  if (!row || !now) return {File::State::Gone, {}};
  const std::string_view stamp = (*row)[0].as_text();
  if (is_unchanged(stamp, (*row)[1].as_integer(), *now)) return {};
  const SourceText source = read_source(_index.place().root, *now);
  if (source.kind != SourceText::Kind::Text) return {File::State::Gone, {}};
  if (content_of_stamp(source.stamp) == content_of_stamp(stamp)) return {};
  return {File::State::Changed, lines_of_text(source.text)};
}

bool Freshness::_tree_is_here() {
  if (!_is_here) {
    _is_here = false;
    for (const Row& row : _index.fetchall(SOME_FILES))
      _is_here = *_is_here || stat_of(_index.place().root, std::string(row[0].as_text()));
  }
  return *_is_here;
}

std::optional<std::string> Freshness::_indexed_line(const std::string& path, std::int64_t line) {
  const auto row = _index.fetchone(
      "SELECT text, start_line FROM files JOIN code_chunks"
      " ON code_chunks.rowid >= files.id * ?1 AND code_chunks.rowid < (files.id + 1) * ?1"
      " WHERE path = ?2 AND start_line <= ?3 AND end_line >= ?3",
      {CHUNKS_PER_FILE, path, line});
  if (!row) return std::nullopt;
  const auto lines = lines_of_text((*row)[0].as_text());
  const auto at = static_cast<std::size_t>(line - (*row)[1].as_integer());
  return at < lines.size() ? std::optional(lines[at]) : std::nullopt;
}

}  // namespace veldra::tool
