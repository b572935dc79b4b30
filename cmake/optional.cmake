# Defines QUILLWORK_<name> for the target and links the library where its header is there, too; elsewhere
# says what is left out.
function(quillwork_use_optional target name header library otherwise)
  find_path(${name}_INCLUDE ${header})
  find_library(${name}_LIBRARY ${library})
  if(${name}_INCLUDE AND ${name}_LIBRARY)
    target_compile_definitions(${target} PRIVATE QUILLWORK_${name})
    target_link_libraries(${target} PRIVATE ${${name}_LIBRARY})
  else()
    message(STATUS "${otherwise}")
  endif()
endfunction()
