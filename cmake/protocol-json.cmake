# protocol.json, which the compiler writes into an object file. Without what sanitizers and link-time
# optimisation would make of that.
add_library(quillwork-protocol-json OBJECT bindings/protocol_json.cpp)
target_link_libraries(quillwork-protocol-json PRIVATE quillwork-options)
target_compile_definitions(quillwork-protocol-json PRIVATE QUILLWORK_VERSION="${PROJECT_VERSION}")
target_compile_options(quillwork-protocol-json PRIVATE -fno-sanitize=all
                                                       $<$<CXX_COMPILER_ID:Clang>:-fconstexpr-steps=10000000>)
set_target_properties(quillwork-protocol-json PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)

set(QUILLWORK_PROTOCOL_JSON ${PROJECT_BINARY_DIR}/protocol.json)
add_custom_command(
  OUTPUT ${QUILLWORK_PROTOCOL_JSON}
  COMMAND ${CMAKE_OBJCOPY} --output-target=binary --only-section=.protocol_json
          $<TARGET_OBJECTS:quillwork-protocol-json> ${QUILLWORK_PROTOCOL_JSON}
  DEPENDS quillwork-protocol-json $<TARGET_OBJECTS:quillwork-protocol-json>
  VERBATIM)
add_custom_target(quillwork-protocol ALL DEPENDS ${QUILLWORK_PROTOCOL_JSON})
