# What is missing is named by the Debian package that has it.

# vantry_find_package(PACKAGE NAME [...]): find_package(NAME ...), which PACKAGE provides.
macro(vantry_find_package package name)
    find_package(${name} ${ARGN} QUIET)
    if(NOT ${name}_FOUND)
        message(FATAL_ERROR "${name} is missing: install the package ${package}, "
            "or run scripts/test, which installs everything")
    endif()
endmacro()

# vantry_find_library(PACKAGE PREFIX HEADER NAME...): sets PREFIX_LIBRARY and PREFIX_INCLUDE_DIR.
function(vantry_find_library package prefix header)
    find_library(${prefix}_LIBRARY NAMES ${ARGN})
    find_path(${prefix}_INCLUDE_DIR ${header})
    if(NOT ${prefix}_LIBRARY OR NOT ${prefix}_INCLUDE_DIR)
        message(FATAL_ERROR "${header} or its library is missing: install the package ${package}, "
            "or run scripts/test, which installs everything. Static libraries without the registry "
            "need neither Berkeley DB nor libsodium: -D VANTRY_SHARED=OFF -D VANTRY_REGISTRY=OFF")
    endif()
endfunction()
