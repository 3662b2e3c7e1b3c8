// Which tags belong to which file.
#include "veldra-index/parse/tag_division.h"

#include <algorithm>
#include <functional>
#include <string>

#include "veldra-index/parse/tag_reader.h"
#include "veldra-index/tree/path_text.h"

namespace veldra::tool {
namespace {

constexpr std::string_view FILE_KIND = "\"file\"";

/// The tags of one file.
struct Part {
  std::string_view tags;
  std::string name;
};

std::optional<Part> part_up_to(std::string_view tags) {
  const std::size_t before = tags.substr(0, tags.size() - 1).rfind('\n');
  std::string line(tags.substr(before + 1));  // a copy: reading undoes escapes in place
  line.pop_back();
  TagLine tag;
  if (!read_tag_line(line, tag) || tag.kind != "file") return std::nullopt;
  return Part{tags, std::string(tag.name)};
}

/// Nothing when there are tags behind the last part.
std::optional<std::vector<Part>> parts_of(std::string_view output) {
  const std::boyer_moore_horspool_searcher file_kind(FILE_KIND.begin(), FILE_KIND.end());
  std::vector<Part> parts;
  std::size_t begin = 0;
  for (auto at = output.begin();;) {
    at = std::search(at, output.end(), file_kind);
    const std::size_t end = output.find('\n', static_cast<std::size_t>(at - output.begin()));
    if (end == std::string_view::npos) break;
    if (auto part = part_up_to(output.substr(begin, end + 1 - begin))) {
      parts.push_back(std::move(*part));
      begin = end + 1;
    }
    at = output.begin() + end + 1;
  }
  if (begin != output.size()) return std::nullopt;
  return parts;
}

}  // namespace

std::optional<std::vector<std::string_view>> divide_tags(std::string_view output,
                                                         std::span<const std::string_view> paths) {
  const auto parts = parts_of(output);
  if (!parts) return std::nullopt;

  // Each part to the first file that it can be of, and once more to the last: where both are the
  // same there is one way only.
  std::vector<std::string_view> tags(paths.size());
  std::vector<std::size_t> first_choice;
  std::size_t path = 0;
  for (const Part& part : *parts) {
    while (path < paths.size() && file_name_of(paths[path]) != part.name) ++path;
    if (path == paths.size()) return std::nullopt;
    first_choice.push_back(path);
    tags[path++] = part.tags;
  }
  path = paths.size();
  for (std::size_t part = parts->size(); part-- > 0;) {
    do --path;
    while (file_name_of(paths[path]) != (*parts)[part].name);
    if (path != first_choice[part]) return std::nullopt;
  }
  return tags;
}

}  // namespace veldra::tool
