vantry_sources(
    SOURCES
        LpString.cpp
        LpStringHash.cpp
        TokenEdges.cpp
    HEADERS
        LpString.h
        LpStringHash.h
        qtTokenize.h)

if(NOT VANTRY_X86)
    return()
endif()
# The library chooses among these when it is loaded.
vantry_sources(SOURCES TokenEdges128.cpp TokenEdges256.cpp TokenEdges512.cpp)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/TokenEdges128.cpp
    PROPERTIES COMPILE_OPTIONS "-msse4.1;-mpopcnt")
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/TokenEdges256.cpp
    PROPERTIES COMPILE_OPTIONS "-mavx2;-mbmi;-mpopcnt")
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/TokenEdges512.cpp
    PROPERTIES COMPILE_OPTIONS "-mavx512bw;-mavx512vl;-mavx512vbmi2;-mbmi;-mpopcnt")
