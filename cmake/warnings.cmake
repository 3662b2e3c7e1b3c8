# The warnings of this project's own code. Linked privately, never exported to a consumer;
# a preset makes them errors (CMAKE_COMPILE_WARNING_AS_ERROR).
add_library(veldra_warnings INTERFACE)
target_compile_options(veldra_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
