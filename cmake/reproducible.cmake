# The same sources give the same bytes in whatever directory they are built.
add_library(quillwork-reproducible INTERFACE)

# Within another project, and where a distribution maps the paths itself, theirs counts. gcovr looks for
# the sources where they were.
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_FLAGS MATCHES "-prefix-map=|--coverage")
  target_compile_options(
    quillwork-reproducible INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
                                     -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build)
endif()

# What GCC's link-time optimisation names at random, it names by the source's path.
function(quillwork_reproducible target)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  foreach(source ${sources})
    cmake_path(ABSOLUTE_PATH source OUTPUT_VARIABLE seed)
    cmake_path(RELATIVE_PATH seed BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS -frandom-seed=${seed})
  endforeach()
endfunction()
