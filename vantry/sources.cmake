vantry_sources(
    SOURCES
        hpack.cpp
    HEADERS
        hpack.h)
