// What a parsed file holds.
#include "veldra-index/parse/parsed_file.h"

namespace veldra::tool {

std::size_t ParsedFile::bytes() const {
  return source.text.size() + tags.size() + fqns.size() + symbols.size() * sizeof(Symbol) + 1024;
}

}  // namespace veldra::tool
