vantry_sources(
    SOURCES
        qtX.cpp
    HEADERS
        qtX.h)
