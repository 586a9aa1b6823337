#pragma once

#include "basekit/Export.h"

/// A resizable block of bytes that owns its memory.
///
/// Not thread-safe. Pointers from Data() are valid until the next Resize(), assignment or
/// destruction.
class VANTRY_EXPORT qtBuffer {
public:
    qtBuffer() = default;
    qtBuffer(const qtBuffer& other);
    qtBuffer(qtBuffer&& other) noexcept;
    qtBuffer& operator=(const qtBuffer& other);
    qtBuffer& operator=(qtBuffer&& other) noexcept;
    ~qtBuffer();

    /// The first byte; null while the buffer is empty.
    /// @{
    char* Data() { return data; }
    const char* Data() const { return data; }
    /// @}

    /// The length in bytes.
    unsigned long Length() const { return length; }

    /// Changes the length. Bytes up to the smaller of the old and the new length are kept; added
    /// bytes are uninitialized. Shrinking never fails.
    /// @throws std::bad_alloc if there is no memory to grow; the buffer is then unchanged
    void Resize(unsigned long newLength);

private:
    char* data = nullptr;
    unsigned long length = 0;
};
