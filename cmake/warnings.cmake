# The warnings of this project's own code. Linked privately, never exported to a consumer;
# a preset makes them errors (CMAKE_COMPILE_WARNING_AS_ERROR).
add_library(veldra_warnings INTERFACE)
target_compile_options(veldra_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  # g++ 12 sees overlaps inside std::string that are not there (https://gcc.gnu.org/PR105651).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
