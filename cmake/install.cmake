# What `cmake --install` puts where, for CMake and pkg-config to find, in four parts: the library, what
# one builds with it, the programs, and the client for Python. CPack makes a Debian package of each.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/quillwork-ipc)
set_target_properties(quillwork-ipc PROPERTIES EXPORT_NAME ipc)
install(
  TARGETS quillwork-ipc
  EXPORT quillwork-ipc
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(
  FILES adapter/AdapterOwner.h adapter/MiddlewareIpc.h
  DESTINATION ${QUILLWORK_HEADERS}/adapter
  COMPONENT development)
install(
  FILES ipc/IpcDemuxServerListener.h ipc/IpcListener.h ipc/ThreadSafety.h
  DESTINATION ${QUILLWORK_HEADERS}/ipc
  COMPONENT development)
install(
  FILES protocol/ConnectionListener.h
        protocol/IpcServerListener.h
        protocol/IpcServerManager.h
        protocol/ReplyLists.h
        protocol/export.h
        protocol/language.h
        protocol/message.h
        protocol/records.h
  DESTINATION ${QUILLWORK_HEADERS}/protocol
  COMPONENT development)
install(
  DIRECTORY facade/
  DESTINATION ${QUILLWORK_HEADERS}/facade
  COMPONENT development
  FILES_MATCHING
  PATTERN "*.h")
install(
  FILES packaging/gdb/quillwork_ipc.py ${QUILLWORK_PROTOCOL_JSON}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quillwork-ipc
  COMPONENT development)

if(QUILLWORK_TOOLS)
  set_target_properties(quillwork-ipc-client PROPERTIES EXPORT_NAME ipc-client)
  install(
    TARGETS quillwork-ipc-client
    EXPORT quillwork-ipc
    ARCHIVE COMPONENT development)
  install(
    FILES client/Channel.h client/ControlChannel.h client/Records.h client/SectionFilterChannel.h
    DESTINATION ${QUILLWORK_HEADERS}/client
    COMPONENT development)
  # The receiver finds the library also where the tree is not the system's.
  set_target_properties(quillwork-receiver PROPERTIES INSTALL_RPATH
                                                      "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS quillwork-client quillwork-receiver RUNTIME COMPONENT tools)
  install(
    FILES docs/man/quillwork-client.1 docs/man/quillwork-receiver.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tools)
  install(
    FILES packaging/bash-completion/quillwork-client
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    COMPONENT tools)
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

install(
  EXPORT quillwork-ipc
  NAMESPACE quillwork::
  FILE quillwork-ipc-targets.cmake
  DESTINATION ${package_directory}
  COMPONENT development)
configure_package_config_file(
  cmake/quillwork-ipc-config.cmake.in ${PROJECT_BINARY_DIR}/quillwork-ipc-config.cmake
  INSTALL_DESTINATION ${package_directory}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/quillwork-ipc-config-version.cmake COMPATIBILITY SameMinorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/quillwork-ipc-config.cmake
        ${PROJECT_BINARY_DIR}/quillwork-ipc-config-version.cmake
  DESTINATION ${package_directory}
  COMPONENT development)

# Relative to the files themselves, so that a tree that was moved still works.
file(RELATIVE_PATH pkgconfig_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(package quillwork-ipc quillwork-ipc-client)
  configure_file(cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
endforeach()
install(
  FILES ${PROJECT_BINARY_DIR}/quillwork-ipc.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
if(QUILLWORK_TOOLS)
  install(
    FILES ${PROJECT_BINARY_DIR}/quillwork-ipc-client.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
if(QUILLWORK_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools python)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The quillwork-ipc developers <quillwork-ipc@localhost>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libquillwork-ipc0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "${PROJECT_DESCRIPTION}\nThe shared library, for the middleware's process.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquillwork-ipc-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libquillwork-ipc0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "${PROJECT_DESCRIPTION}\nHeaders, the client library, CMake package and pkg-config files.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME quillwork-ipc-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libquillwork-ipc0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "${PROJECT_DESCRIPTION}\nThe reference receiver and the command-line client.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-quillwork-ipc)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9)")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "${PROJECT_DESCRIPTION}\nA client for Python, and a programme guide as an example.")
include(CPack)
