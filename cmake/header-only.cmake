# biTStream, CLI11 and fmt are used as headers only.
find_path(FMT_INCLUDE fmt/format.h REQUIRED)
add_library(quillwork-header-only INTERFACE)
target_compile_definitions(quillwork-header-only INTERFACE FMT_HEADER_ONLY)
