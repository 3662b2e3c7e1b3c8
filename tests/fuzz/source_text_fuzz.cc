// libFuzzer: any bytes of a file become UTF-8.
#include <cstdlib>
#include <string>

#include "veldra-index/tree/encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace veldra::tool;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const std::string& text : {latin1_to_utf8(bytes), utf16_to_utf8(bytes)})
    if (find_invalid_utf8(text) != std::string::npos) std::abort();
  return 0;
}
