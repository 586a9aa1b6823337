#include "basekit/qtBuffer.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

qtBuffer::qtBuffer(const qtBuffer& other) {
    Resize(other.length);
    if (length != 0) {
        std::memcpy(data, other.data, length);
    }
}

qtBuffer::qtBuffer(qtBuffer&& other) noexcept
    : data(std::exchange(other.data, nullptr)), length(std::exchange(other.length, 0)) {}

qtBuffer& qtBuffer::operator=(const qtBuffer& other) {
    if (this != &other) {
        *this = qtBuffer(other);
    }
    return *this;
}

qtBuffer& qtBuffer::operator=(qtBuffer&& other) noexcept {
    std::swap(data, other.data);
    std::swap(length, other.length);
    return *this;
}

qtBuffer::~qtBuffer() {
    std::free(data);
}

void qtBuffer::Resize(unsigned long newLength) {
    if (newLength == length) {
        return;
    }
    if (newLength == 0) {
        std::free(data);
        data = nullptr;
        length = 0;
        return;
    }
    // realloc moves large blocks by remapping their pages, so growing copies nothing.
    void* const block = std::realloc(data, newLength);
    if (block != nullptr) {
        data = static_cast<char*>(block);
    } else if (newLength > length) {
        throw std::bad_alloc();
    }
    length = newLength;
}
