#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace veldra {

/// The page size of the files below: small, so that many pages are made quickly.
inline constexpr std::int64_t PAGE_BYTES = 512;

/// Makes a file in WAL mode with the auto-vacuum mode `mode`, of `pages` pages in all, of which
/// exactly `free` are on the free list, with a table `filler (b BLOB)` that has a few
/// rows, 1 among them.
void make_pages(const std::filesystem::path& path, std::string_view mode, std::int64_t pages,
                std::int64_t free);

}  // namespace veldra
