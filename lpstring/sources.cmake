vantry_sources(
    SOURCES
        LpString.cpp
    HEADERS
        LpString.h
        qtTokenize.h)
