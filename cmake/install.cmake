# What `cmake --install` and `cpack -G DEB` put where: library, public headers, CMake package, pkg-config file.
# The tool's own files are installed by tools/CMakeLists.txt, as the component `tool`.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/veldra")
set(installed_targets veldra_storage)
# What a consumer has to find as well: a static library leaves its own dependencies to the final link.
set(dependencies "")
set(pc_requires "")
set(pc_libs "")
if(NOT BUILD_SHARED_LIBS)
  set(dependencies "Threads" "spdlog")
  set(pc_requires "spdlog")
  if(VELDRA_SQLITE_AMALGAMATION)
    list(APPEND installed_targets veldra_sqlite)
    set(pc_libs "-lveldra_sqlite -lm -ldl -pthread")
  else()
    list(APPEND dependencies "SQLite3")
    string(APPEND pc_requires " sqlite3")
  endif()
endif()
list(TRANSFORM dependencies REPLACE "(.+)" "find_dependency(\\1)")
list(JOIN dependencies "\n" dependencies)

install(TARGETS ${installed_targets} EXPORT veldraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT veldraTargets NAMESPACE veldra:: DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(cmake/veldraConfig.cmake.in veldraConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(veldraConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/veldraConfig.cmake" "${PROJECT_BINARY_DIR}/veldraConfigVersion.cmake"
  DESTINATION ${package_dir} COMPONENT development)

# From the file's own place to the prefix, so that the installed tree may be moved.
file(RELATIVE_PATH pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/veldra-storage.pc.in veldra-storage.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/veldra-storage.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# A package for who uses the tool and one for who builds with the library; a shared library has its own.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL tool development)
set(CPACK_PACKAGE_NAME veldra)
set(CPACK_PACKAGE_CONTACT "Veldra maintainers <maintainers@veldra.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME veldra-index)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS universal-ctags)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libveldra-storage-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
if(BUILD_SHARED_LIBS)
  list(APPEND CPACK_COMPONENTS_ALL library)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libveldra-storage${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/src")
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
  set(CPACK_COMPONENT_TOOL_DEPENDS library)
  set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
else()
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libspdlog-dev)
  if(NOT VELDRA_SQLITE_AMALGAMATION)
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libsqlite3-dev")
  endif()
endif()
include(CPack)
