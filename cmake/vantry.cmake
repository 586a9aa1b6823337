# The library itself: each folder lists its sources in its own sources.cmake.
vantry_library(vantry VANTRY_${VANTRY_SOVERSION})
add_library(Vantry::vantry ALIAS vantry)

set_target_properties(vantry PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${VANTRY_SOVERSION}
    # The base layer is in the same folder, wherever the prefix is moved to.
    INSTALL_RPATH "$ORIGIN")
target_link_libraries(vantry PUBLIC basekit)
vantry_use_system(vantry)

# vantry_sources(SOURCES a.cpp HEADERS a.h): headers are installed by the path
# that they are included by.
function(vantry_sources)
    cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "SOURCES;HEADERS")
    list(TRANSFORM arg_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
    list(TRANSFORM arg_HEADERS PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
    target_sources(vantry PRIVATE ${arg_SOURCES})
    target_sources(vantry PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}
        FILES ${arg_HEADERS})
endfunction()

string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" VANTRY_PROCESSOR)
if(VANTRY_PROCESSOR MATCHES "^(x86|x86_64|amd64|i[3-6]86)$")
    set(VANTRY_X86 ON)
endif()

foreach(folder cpu QtInclude hpack lpstring VexUnix Vantry vantry)
    if(folder STREQUAL VexUnix AND NOT VANTRY_REGISTRY)
        continue()
    endif()
    include(${folder}/sources.cmake)
endforeach()
