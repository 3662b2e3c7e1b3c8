// libFuzzer: any bytes of a file become UTF-8, and any import in them finds a file or none.
#include <cstdlib>
#include <string>
#include <vector>

#include "veldra-index/index/import_resolver.h"
#include "veldra-index/tree/encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace veldra::tool;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const std::string& text : {latin1_to_utf8(bytes), utf16_to_utf8(bytes)}) {
    if (find_invalid_utf8(text) != std::string::npos) std::abort();
  }
  static const std::vector<std::string_view> PATHS = {"a.py", "b/a.py", "b/__init__.py", "b/c/a.h"};
  static const ImportResolver resolver(PATHS);
  const std::size_t middle = size / 2;
  const auto file = resolver.resolve(bytes.substr(0, middle), bytes.substr(middle), size % 2 == 1);
  if (file && *file >= PATHS.size()) std::abort();
  return 0;
}
