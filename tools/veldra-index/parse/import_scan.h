#pragma once

#include <string_view>
#include <vector>

#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

/// The import statements of a file whose language (by the extension of `path`) is one of those that
/// are read here: Python, JavaScript and TypeScript, Go, Rust, Java. False for any other: then
/// ctags knows, or nobody.
bool scan_imports(std::string_view path, std::string_view text, std::vector<Import>& imports);

}  // namespace veldra::tool
