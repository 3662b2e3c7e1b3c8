#pragma once

#include <string>
#include <vector>

#include "veldra-index/arguments.h"

namespace veldra::tool {

/// "man", "bash", "zsh" and "fish".
const std::vector<std::string>& document_kinds();

/// The man page, or what a shell needs to complete the command line: made from `line` alone.
std::string generate(const CommandLine& line, const std::string& kind);

}  // namespace veldra::tool
