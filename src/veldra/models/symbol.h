#pragma once

#include <string>
#include <string_view>

#include "veldra/export.h"

namespace veldra {

/// The kind of a file's top-level anchor: it stands for the file in `edges` and is no symbol of its
/// source text.
inline constexpr std::string_view ANCHOR_KIND = "anchor";

/// The SQL condition, over the columns of `symbols`, that holds for the symbols listed to a user:
/// all but the anchors. Complete and without parameters, to stand behind WHERE or AND.
VELDRA_EXPORT std::string listed_sql();

}  // namespace veldra
