vantry_sources(
    SOURCES
        SegBuf.cpp
        qtX.cpp
    HEADERS
        SegBuf.h
        qtX.h)
