# A broadcast's texts, for the receiver and, where biTStream is there, for the command line, which shows
# those of descriptors.
find_path(BITSTREAM_INCLUDE bitstream/mpeg/psi.h)
if(NOT BITSTREAM_INCLUDE)
  return()
endif()

add_library(quillwork-broadcast-text STATIC receiver/Text.cpp)
target_link_libraries(quillwork-broadcast-text PUBLIC quillwork-options)

find_path(ARIBB24_INCLUDE aribb24/aribb24.h)
find_library(ARIBB24_LIBRARY aribb24)
if(ARIBB24_INCLUDE AND ARIBB24_LIBRARY)
  target_compile_definitions(quillwork-broadcast-text PRIVATE QUILLWORK_ARIB)
  target_link_libraries(quillwork-broadcast-text PRIVATE ${ARIBB24_LIBRARY})
else()
  message(STATUS "libaribb24 is missing for this processor: ARIB texts are not converted")
endif()
