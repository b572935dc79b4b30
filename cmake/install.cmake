# What `cmake --install` puts where, for CMake, pkg-config and gdb to find, in four components: the
# library (runtime), what one builds with it (development), the programs (tools), and the client for
# Python (python).
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/quillwork-ipc)
set(components development)

# The CMake package's part for one library, and its pkg-config file.
file(RELATIVE_PATH pkgconfig_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
function(install_library target)
  install(
    TARGETS ${target}
    EXPORT ${target}
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
  install(
    EXPORT ${target}
    NAMESPACE quillwork::
    FILE ${target}-targets.cmake
    DESTINATION ${package_directory}
    COMPONENT development)
  # Its paths are relative to the file itself, so that a tree that was moved still works.
  configure_file(cmake/${target}.pc.in ${PROJECT_BINARY_DIR}/${target}.pc @ONLY)
  install(
    FILES ${PROJECT_BINARY_DIR}/${target}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endfunction()

if(QUILLWORK_LIBRARY)
  list(APPEND components runtime)
  install_library(quillwork-ipc)
  quillwork_install_headers(${QUILLWORK_LIBRARY_HEADERS})
  # gdb loads a script from there by itself when a process has the library of that path.
  install(
    FILES packaging/gdb/quillwork_ipc.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
    RENAME libquillwork-ipc.so.${PROJECT_VERSION}-gdb.py
    COMPONENT development)
endif()
if(QUILLWORK_CLIENT)
  install_library(quillwork-ipc-client)
  quillwork_install_headers(${QUILLWORK_CLIENT_HEADERS})
endif()
configure_package_config_file(
  cmake/quillwork-ipc-config.cmake.in ${PROJECT_BINARY_DIR}/quillwork-ipc-config.cmake
  INSTALL_DESTINATION ${package_directory}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quillwork-ipc-config-version.cmake
                                 COMPATIBILITY ${QUILLWORK_COMPATIBILITY})
install(
  FILES ${PROJECT_BINARY_DIR}/quillwork-ipc-config.cmake
        ${PROJECT_BINARY_DIR}/quillwork-ipc-config-version.cmake
  DESTINATION ${package_directory}
  COMPONENT development)
install(
  FILES packaging/gdb/quillwork_ipc.py ${QUILLWORK_PROTOCOL_JSON}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quillwork-ipc
  COMPONENT development)
# The pages stand to each other as in the tree, so that what one names is where it says.
install(
  FILES CHANGELOG.md SECURITY.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT development)
install(
  DIRECTORY docs/
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
  COMPONENT development
  FILES_MATCHING
  PATTERN "*.md"
  PATTERN "*.svg"
  PATTERN "examples" EXCLUDE
  PATTERN "man" EXCLUDE)
install(
  DIRECTORY tests/golden
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/tests
  COMPONENT development)
install(
  DIRECTORY docs/examples
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT development)

if(QUILLWORK_COMMAND_LINE OR QUILLWORK_RECEIVER)
  list(APPEND components tools)
endif()
if(QUILLWORK_COMMAND_LINE)
  install(TARGETS quillwork-client RUNTIME COMPONENT tools)
  install(
    FILES docs/man/quillwork-client.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tools)
  install(
    FILES packaging/bash-completion/quillwork-client
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    COMPONENT tools)
endif()
if(QUILLWORK_RECEIVER)
  # The receiver finds the library also where the tree is not the system's.
  set_target_properties(quillwork-receiver PROPERTIES INSTALL_RPATH
                                                      "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS quillwork-receiver RUNTIME COMPONENT tools)
  install(
    FILES docs/man/quillwork-receiver.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tools)
  install(
    FILES ${PROJECT_BINARY_DIR}/sample.ts
    DESTINATION ${CMAKE_INSTALL_DATADIR}/quillwork-ipc
    COMPONENT tools)
endif()

if(QUILLWORK_PYTHON)
  list(APPEND components python)
  # Where Debian's Python looks for packages that are no version's own.
  set(QUILLWORK_PYTHON_DIRECTORY lib/python3/dist-packages
      CACHE STRING "Where the Python package is installed, below the prefix")
  install(
    DIRECTORY bindings/python/quillwork_ipc
    DESTINATION ${QUILLWORK_PYTHON_DIRECTORY}
    COMPONENT python
    FILES_MATCHING
    PATTERN "*.py"
    PATTERN "py.typed"
    PATTERN "__pycache__" EXCLUDE)
  install(
    FILES ${QUILLWORK_PROTOCOL_JSON}
    DESTINATION ${QUILLWORK_PYTHON_DIRECTORY}/quillwork_ipc
    COMPONENT python)
  install(
    PROGRAMS bindings/python/examples/guide.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/python3-quillwork-ipc/examples
    COMPONENT python)
endif()

# Whichever part is installed alone, its licence comes along.
foreach(component ${components})
  install(
    FILES LICENSE
    DESTINATION ${CMAKE_INSTALL_DATADIR}/licenses/quillwork-ipc
    COMPONENT ${component})
endforeach()
