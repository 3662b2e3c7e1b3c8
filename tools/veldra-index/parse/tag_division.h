#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace veldra::tool {

/// Divides what one ctags wrote about `paths`, in their order, into the tags of each, which may be
/// none.
///
/// The tags of a file end with one for the file itself, of kind "file" and with the last part of
/// the path as its name (--extras=+f); only a file in no language that ctags knows gives nothing at
/// all. Where several files have the same name it may not be certain which of them was the one that
/// gave nothing. Nothing is returned then, nor for an output that does not end with a file's tag.
///
/// Tags that name their path (--fields=+F) would need no division, but take ctags an eighth longer.
std::optional<std::vector<std::string_view>> divide_tags(std::string_view output,
                                                         std::span<const std::string_view> paths);

}  // namespace veldra::tool
