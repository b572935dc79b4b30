# The library, of objects that the tests link in as well.
add_library(
  quillwork-ipc-objects OBJECT
  ipc/DemuxSession.cpp
  ipc/HostCall.cpp
  ipc/IpcDemuxServer.cpp
  ipc/IpcServer.cpp
  ipc/ListeningSocket.cpp
  ipc/Report.cpp
  ipc/SectionRequest.cpp
  ipc/SharedSocket.cpp
  protocol/ApplicationState.cpp
  protocol/IpcServerManager.cpp
  protocol/notifications.cpp
  protocol/queries.cpp
  protocol/requests.cpp
  adapter/MiddlewareIpc.cpp
  adapter/carousel.cpp
  adapter/media.cpp
  adapter/properties.cpp
  adapter/section_filter.cpp
  adapter/service_information.cpp
  adapter/tuner.cpp
  adapter/video.cpp)
target_link_libraries(quillwork-ipc-objects PUBLIC quillwork-options)
quillwork_reproducible(quillwork-ipc-objects)

# A shared library unless static ones are asked for. The facade factories stay undefined: the host
# process or its facade library has them.
set(type SHARED)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(type STATIC)
  # What others link holds machine code, not what one version of one compiler alone can read.
  set_target_properties(quillwork-ipc-objects PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
endif()
add_library(quillwork-ipc ${type} $<TARGET_OBJECTS:quillwork-ipc-objects>)
add_library(quillwork::ipc ALIAS quillwork-ipc)
target_link_libraries(quillwork-ipc PRIVATE Threads::Threads)
quillwork_public_headers(quillwork-ipc)
set_target_properties(
  quillwork-ipc
  PROPERTIES EXPORT_NAME ipc
             SOVERSION ${QUILLWORK_ABI_VERSION}
             VERSION ${PROJECT_VERSION}
             LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/quillwork-ipc.map)
if(type STREQUAL SHARED)
  # The section-filter thread outlives the adapter: unloading must not pull the code away under it. The
  # library calls its own operations directly, whatever else in the process bears their names.
  target_link_options(
    quillwork-ipc PRIVATE LINKER:-Bsymbolic-functions
    LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/quillwork-ipc.map LINKER:-z,nodelete)
  # Distributions that link with -z defs would refuse the factories; the last such option counts.
  include(CheckLinkerFlag)
  check_linker_flag(CXX LINKER:-z,undefs QUILLWORK_LINKER_ALLOWS_UNDEFINED)
  if(QUILLWORK_LINKER_ALLOWS_UNDEFINED)
    target_link_options(quillwork-ipc PRIVATE LINKER:-z,undefs)
  endif()
endif()

# The same objects, for tests that reach the inner classes.
add_library(quillwork-ipc-static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:quillwork-ipc-objects>)
target_link_libraries(quillwork-ipc-static PUBLIC quillwork-options)
