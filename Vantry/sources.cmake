vantry_sources(
    SOURCES
        VantryVersion.cpp
    HEADERS
        VantryVersion.h)
