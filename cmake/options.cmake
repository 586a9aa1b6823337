# Compile options that all our targets share: link vantry_options privately.
find_package(Threads REQUIRED)

# Developers' builds use ccache where it is installed. It caches a file with a precompiled header only
# with the first option; CMakePresets.json sets what else it needs.
if(VANTRY_DEVELOPER AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(VANTRY_CCACHE ccache)
    mark_as_advanced(VANTRY_CCACHE)
    if(VANTRY_CCACHE)
        set(CMAKE_CXX_COMPILER_LAUNCHER ${VANTRY_CCACHE})
    endif()
endif()
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES ccache AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-fpch-preprocess)
endif()

# A compiler cache may name sources relative to the build folder.
file(RELATIVE_PATH VANTRY_SOURCES_FROM_BUILD ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR})
if(NOT VANTRY_SOURCES_FROM_BUILD MATCHES "/$")
    string(APPEND VANTRY_SOURCES_FROM_BUILD "/")
endif()

add_library(vantry_options INTERFACE)
target_compile_options(vantry_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    # Exceptions record the throwing file: its path within the project, not on the building machine.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
    "-ffile-prefix-map=${VANTRY_SOURCES_FROM_BUILD}=")
# What gcc leaves out of -Wconversion.
target_compile_options(vantry_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
# With the assertions of its library on, gcc 12 wrongly warns that a long string is moved into the buffer
# for short ones.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(vantry_options INTERFACE -Wno-array-bounds -Wno-stringop-overflow)
endif()
# Files beyond 2 GiB must open, to be measured or refused with a clear error, on 32-bit machines too.
target_compile_definitions(vantry_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_libraries(vantry_options INTERFACE Threads::Threads)
if(VANTRY_DEVELOPER)
    target_compile_options(vantry_options INTERFACE -Werror)
endif()

# Link this privately for code whose own speed does not matter, tests and tools: most of a build is
# the templates of their frameworks, and -O3 takes nearly twice as long for these.
add_library(vantry_quick_build INTERFACE)
target_compile_options(vantry_quick_build INTERFACE $<$<CONFIG:Release>:-O1>)

# Undefined symbols are found when a library is linked, not when a program starts. The sanitizers
# resolve theirs from the program, so they cannot have it.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(vantry_options INTERFACE -Wl,--no-undefined)
endif()

# vantry_library(NAME NODE): a library of ours, without its sources. NODE is what its symbols are
# versioned with.
function(vantry_library name VANTRY_ABI_NODE)
    if(NOT VANTRY_SHARED)
        add_library(${name} STATIC)
    else()
        add_library(${name} SHARED)
        configure_file(${PROJECT_SOURCE_DIR}/abi/exports.map.in ${PROJECT_BINARY_DIR}/${name}.map)
        target_link_options(${name} PRIVATE
            LINKER:--version-script=${PROJECT_BINARY_DIR}/${name}.map)
        set_property(TARGET ${name} PROPERTY LINK_DEPENDS ${PROJECT_BINARY_DIR}/${name}.map)
    endif()
    # Debuggers, and the comparison of the binary interface with the former one, want to know types;
    # what is packaged is stripped.
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-g>)
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:vantry_options>)
endfunction()
