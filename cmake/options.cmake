# Compile options that every target of ours shares: link vantry_options privately.
find_package(Threads REQUIRED)

# A compiler cache may name sources relative to the build folder.
file(RELATIVE_PATH VANTRY_SOURCES_FROM_BUILD ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR})

add_library(vantry_options INTERFACE)
target_compile_options(vantry_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    # Exceptions record the throwing file: its path within the project, not on the building machine.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
    "-ffile-prefix-map=${VANTRY_SOURCES_FROM_BUILD}=")
# Files beyond 2 GiB must open, to be measured or refused with a clear error, on 32-bit machines too.
target_compile_definitions(vantry_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_libraries(vantry_options INTERFACE Threads::Threads)
if(VANTRY_DEVELOPER)
    target_compile_options(vantry_options INTERFACE -Werror)
endif()

# Undefined symbols are found when a library is linked, not when a program starts. The sanitizers
# resolve theirs from the program, so they can not have it.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(vantry_options INTERFACE -Wl,--no-undefined)
endif()
