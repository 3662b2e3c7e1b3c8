// libFuzzer: the classifier of statements bears any text, and blanks around it change nothing.
#include <cstdlib>
#include <string>

#include "veldra/storage/database_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (veldra::_is_read_statement(text) != veldra::_is_read_statement(" \n" + text + "\t "))
    std::abort();
  return 0;
}
