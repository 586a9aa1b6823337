#include "Vantry/VantryVersion.h"

#include <cstdio>
#include <cstring>

void GetVantryVersion(char* buffer) {
    static constexpr int version[] = {1, 0, 0, 79, 0};
    char text[256];
    const int length = std::snprintf(text, sizeof text, "%d.%d.%d.%d.%d", version[0], version[1],
                                     version[2], version[3], version[4]);
    std::memcpy(buffer, text, static_cast<std::size_t>(length) + 1);
}

void GetQuoVersion(char* buffer) {
    GetVantryVersion(buffer);
}
