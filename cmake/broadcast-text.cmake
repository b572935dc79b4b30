# A broadcast's texts, for the receiver and, where biTStream is there, for the command line, which shows
# those of descriptors.
find_path(BITSTREAM_INCLUDE bitstream/mpeg/psi.h)
if(NOT BITSTREAM_INCLUDE)
  return()
endif()

add_library(quillwork-broadcast-text STATIC receiver/Text.cpp)
target_link_libraries(quillwork-broadcast-text PUBLIC quillwork-options)

quillwork_use_optional(quillwork-broadcast-text ARIB aribb24/aribb24.h aribb24
                       "libaribb24 is missing for this processor: ARIB texts are not converted")
