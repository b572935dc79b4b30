# The public headers. Hosts and clients include them by their path from one directory, installed or in
# the build, in which there is nothing else.
set(QUILLWORK_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/quillwork-ipc)

set(QUILLWORK_CLIENT_HEADERS client/Channel.h client/ControlChannel.h client/Records.h
                             client/SectionFilterChannel.h protocol/language.h
                             protocol/message.h)
set(QUILLWORK_LIBRARY_HEADERS
    adapter/AdapterOwner.h
    adapter/MiddlewareIpc.h
    facade/CarouselFacade.h
    facade/CarouselListener.h
    facade/DemuxFacade.h
    facade/DsmCCCommandFacade.h
    facade/DsmCCCommandListener.h
    facade/GraphicsSettingsListener.h
    facade/MediaListener.h
    facade/PropertyFacade.h
    facade/SIFacade.h
    facade/TunerFacade.h
    facade/VersionFacade.h
    facade/VideoFacade.h
    facade/records.h
    facade/visibility.h
    ipc/IpcDemuxServerListener.h
    ipc/IpcListener.h
    ipc/ThreadSafety.h
    protocol/ConnectionListener.h
    protocol/IpcServerListener.h
    protocol/IpcServerManager.h
    protocol/ReplyLists.h
    protocol/export.h
    protocol/language.h
    protocol/message.h
    protocol/records.h)

set(public_headers ${QUILLWORK_LIBRARY_HEADERS} ${QUILLWORK_CLIENT_HEADERS})
list(REMOVE_DUPLICATES public_headers)
foreach(header ${public_headers})
  cmake_path(GET header PARENT_PATH directory)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include/${directory})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${header} ${PROJECT_BINARY_DIR}/include/${header} COPY_ON_ERROR SYMBOLIC)
endforeach()

function(quillwork_public_headers target)
  target_include_directories(
    ${target} SYSTEM INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
                               $<INSTALL_INTERFACE:${QUILLWORK_HEADERS}>)
  target_compile_features(${target} INTERFACE cxx_std_20)
endfunction()

function(quillwork_install_headers)
  foreach(header ${ARGN})
    cmake_path(GET header PARENT_PATH directory)
    install(
      FILES ${header}
      DESTINATION ${QUILLWORK_HEADERS}/${directory}
      COMPONENT development)
  endforeach()
endfunction()
