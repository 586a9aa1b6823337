vantry_sources(
    SOURCES
        CpuLevel.cpp
        PolyRemainder.cpp
        Poly_Hash.cpp
        SegBuf.cpp
        qtX.cpp
    HEADERS
        Poly_Hash.h
        SegBuf.h
        qtX.h)

if(NOT VANTRY_X86)
    return()
endif()
# The library chooses among these when it is loaded. A hash of some bytes takes so few instructions that
# where they lie would be felt.
vantry_sources(SOURCES PolyRemainderClmul128.cpp PolyRemainderClmul256.cpp
    PolyRemainderClmul512.cpp)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/PolyRemainderClmul128.cpp
    PROPERTIES COMPILE_OPTIONS "-mpclmul;-msse4.1;-falign-functions=64")
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/PolyRemainderClmul256.cpp
    PROPERTIES COMPILE_OPTIONS "-mpclmul;-mvpclmulqdq;-mavx2;-mbmi;-mbmi2;-falign-functions=64")
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/PolyRemainderClmul512.cpp
    PROPERTIES COMPILE_OPTIONS "-mpclmul;-mvpclmulqdq;-mavx512bw;-mavx512vl;-mbmi;-mbmi2;-falign-functions=64")
