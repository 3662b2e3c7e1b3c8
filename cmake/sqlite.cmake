# The target SQLite::SQLite3: the system's library, or the amalgamation that
# VELDRA_SQLITE_AMALGAMATION names, compiled the way this library uses it.

if(NOT VELDRA_SQLITE_AMALGAMATION)
  need_package(SQLite3 libsqlite3-dev)
  if(SQLite3_VERSION VERSION_LESS 3.35)
    message(FATAL_ERROR "SQLite 3.35 or newer is needed (RETURNING), this is ${SQLite3_VERSION}: install a newer "
      "libsqlite3-dev, or build on an amalgamation (scripts/fetch-sqlite.sh, -DVELDRA_SQLITE_AMALGAMATION=DIR).")
  endif()
  return()
endif()

get_filename_component(amalgamation "${VELDRA_SQLITE_AMALGAMATION}" ABSOLUTE BASE_DIR "${CMAKE_SOURCE_DIR}")
foreach(file sqlite3.c sqlite3.h)
  if(NOT EXISTS "${amalgamation}/${file}")
    message(FATAL_ERROR "VELDRA_SQLITE_AMALGAMATION: there is no ${file} in ${amalgamation} "
      "(scripts/fetch-sqlite.sh ${amalgamation} brings both files).")
  endif()
endforeach()

enable_language(C)
# An object library inside a shared library, which then needs no other SQLite; an archive beside a static one.
if(BUILD_SHARED_LIBS)
  add_library(veldra_sqlite OBJECT "${amalgamation}/sqlite3.c")
else()
  add_library(veldra_sqlite STATIC "${amalgamation}/sqlite3.c")
endif()
add_library(SQLite::SQLite3 ALIAS veldra_sqlite)
target_include_directories(veldra_sqlite SYSTEM PUBLIC "$<BUILD_INTERFACE:${amalgamation}>")
target_compile_definitions(veldra_sqlite PRIVATE
  SQLITE_THREADSAFE=1                  # the writer connection is shared by threads
  SQLITE_ENABLE_FTS5                   # code_chunks
  SQLITE_ENABLE_MATH_FUNCTIONS         # as Debian's library has them
  SQLITE_ENABLE_COLUMN_METADATA
  SQLITE_MAX_VARIABLE_NUMBER=250000    # as in Debian's library
  SQLITE_LIKE_DOESNT_MATCH_BLOBS       # as in Debian's library
  SQLITE_USE_URI=0                     # a path is a file name, never a URI
  SQLITE_DQS=0                         # "text" in double quotes is a name, a misspelt one an error
  SQLITE_OMIT_DEPRECATED
  SQLITE_OMIT_LOAD_EXTENSION           # a hostile file or query loads no code
  HAVE_USLEEP=1                        # a busy wait sleeps milliseconds, not whole seconds
)
target_compile_definitions(veldra_sqlite PUBLIC $<BUILD_INTERFACE:SQLITE_OMIT_SHARED_CACHE>)  # its users lack a function
# The journal mode, synchronous, foreign keys and secure_delete are the connection's pragmas, so that the
# layer behaves the same on every SQLite; their defaults stay SQLite's own.
set_target_properties(veldra_sqlite PROPERTIES
  EXPORT_NAME sqlite
  POSITION_INDEPENDENT_CODE ON
  C_VISIBILITY_PRESET hidden
  COMPILE_WARNING_AS_ERROR OFF
)
target_compile_options(veldra_sqlite PRIVATE -w)  # its warnings are its makers'
find_package(Threads REQUIRED)
target_link_libraries(veldra_sqlite PUBLIC Threads::Threads ${CMAKE_DL_LIBS} m)
