// Whether standard output still takes what is written.
#include "veldra-index/terminal/output.h"

#include <cerrno>
#include <iostream>

namespace veldra::tool {

int output_error() {
  static int error = 0;
  if (error == 0 && std::cout.fail()) error = errno;
  return error;
}

}  // namespace veldra::tool
