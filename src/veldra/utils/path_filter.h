#pragma once

#include <string_view>

#include "veldra/export.h"

/// Paths compared as SQL's `path_under` and `path_glob` compare them.
///
/// Thread safety: pure functions.
namespace veldra {

/// True when `path` is `directory` or lies below it.
///
/// Both are compared component by component, byte for byte: `src/store` is not under `src/s`.
/// Doubled and trailing slashes and components `.` count for nothing, so `./src/` is `src`, and
/// everything relative is under the empty directory; `..` is a component like any other. An
/// absolute path is never under a relative directory, nor the other way round.
VELDRA_EXPORT bool path_is_under(std::string_view path, std::string_view directory);

/// True when the whole of `path` matches `pattern`; components are told apart as in
/// `path_is_under`.
///
/// - `*` stands for any run of characters within a component, `?` for one character;
/// - `[a-z_]` stands for one character of the set, `[!a-z]` or `[^a-z]` for one outside it; a `]`
///   that comes first is a member, and a `[` that is never closed matches nothing;
/// - `**` as a whole component stands for any number of components, none included: `src/**` matches
///   `src` and all below it, `**/*.h` every header;
/// - a backslash takes the next character as it stands.
///
/// Letter case counts. A character is one of UTF-8; a byte that is not part of any is one
/// character. Takes time in proportion to the product of the two lengths at most, whatever the
/// pattern.
VELDRA_EXPORT bool path_matches(std::string_view path, std::string_view pattern);

}  // namespace veldra
