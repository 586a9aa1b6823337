#pragma once

#include <fstream>
#include <iterator>

#include "basekit/qtBuffer.h"
#include "basekit/qtPtr.h"
#include "basekit/qtString.h"

/// The bytes that hexadecimal digits stand for; blanks are for the eye.
inline qtString Hex(const char* digits) {
    qtString bytes;
    for (int high = -1; *digits != '\0'; ++digits) {
        if (*digits == ' ') {
            continue;
        }
        const int value = *digits <= '9' ? *digits - '0' : *digits - 'a' + 10;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<char>(high << 4 | value));
            high = -1;
        }
    }
    return bytes;
}

/// A number of four bytes, big-endian.
inline qtString Word(std::size_t value) {
    qtString bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes.push_back(static_cast<char>(value >> shift));
    }
    return bytes;
}

inline qtString AllBytes() {
    qtString bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

inline qtString Bytes(const qtBuffer& buffer) {
    return qtString(buffer.Data(), buffer.Length());
}

inline qtPtr<qtBuffer> NewBuffer(const qtString& bytes = {}) {
    qtPtr<qtBuffer> buffer(new qtBuffer);
    buffer->Resize(bytes.size());
    bytes.copy(buffer->Data(), bytes.size());
    return buffer;
}

inline qtString FileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return qtString(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::string& path, const qtString& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
