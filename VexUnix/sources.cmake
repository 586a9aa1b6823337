vantry_sources(
    SOURCES
        VexRegistryUnix.cpp
    HEADERS
        VexRegistryUnix.h)
