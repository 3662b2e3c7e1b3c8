# need_package(NAME DEBIAN_PACKAGE): find_package, whose failure names what to install.
macro(need_package name debian_package)
  find_package(${name} QUIET)
  if(NOT ${name}_FOUND)
    message(FATAL_ERROR "${name} was not found: install it (Debian: apt-get install ${debian_package}; "
      "`make deps` installs everything), or name its place with -DCMAKE_PREFIX_PATH=DIR.")
  endif()
endmacro()
