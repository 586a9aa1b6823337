vantry_sources(
    SOURCES
        LpString.cpp
        LpStringHash.cpp
    HEADERS
        LpString.h
        LpStringHash.h
        qtTokenize.h)
