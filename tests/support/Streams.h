#pragma once

#include "basekit/qtString.h"
#include "hpack/Generic32.h"

inline void Write(Generic32& stream, qtString bytes) {
    stream.Write(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

inline qtString Read(Generic32& stream, unsigned int count) {
    qtString bytes(count, '#');
    stream.Read(bytes.data(), count);
    return bytes;
}
