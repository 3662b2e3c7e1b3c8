# A compiler that is missing or too old is named together with what to install.

if(NOT DEFINED CMAKE_CXX_COMPILER AND NOT DEFINED ENV{CXX} AND NOT CMAKE_TOOLCHAIN_FILE)
  find_program(VELDRA_CXX NAMES c++ g++ clang++)
  mark_as_advanced(VELDRA_CXX)
  if(NOT VELDRA_CXX)
    message(FATAL_ERROR "No C++ compiler was found: install g++ 12 or newer (Debian: apt-get install g++) "
      "or clang++ 14 or newer (apt-get install clang), or name one with -DCMAKE_CXX_COMPILER=PATH.")
  endif()
endif()

# Called after project(), when the compiler is known.
function(check_compiler)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS "-std=c++20")
  check_cxx_source_compiles("
    #include <concepts>
    #include <span>
    #include <string_view>
    template <std::integral T> constexpr T twice(T n) { return n + n; }
    int main() { return std::string_view(\"ab\").starts_with('a') ? twice(0) : 1; }" VELDRA_HAVE_CXX20)
  if(NOT VELDRA_HAVE_CXX20)
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} (${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}) does not "
      "compile C++20: install g++ 12 or newer or clang++ 14 or newer, and name it with "
      "-DCMAKE_CXX_COMPILER=PATH (in a new build directory).")
  endif()
endfunction()
