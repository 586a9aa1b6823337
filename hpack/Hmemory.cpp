#include "hpack/Hmemory.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

static constexpr std::uint64_t maxSize = UINT32_MAX;
static constexpr std::uint64_t firstGrowth = 2000;

Hmemory::~Hmemory() noexcept(false) {
    Trim();
}

void Hmemory::Open(qtBuffer& newBuffer, char mode) {
    name = "qtBuffer";
    if (newBuffer.Length() > maxSize) {
        Fail(HioErrors::open, (HioErrors::cannotOpen + name).c_str());
    }
    readOnly = mode == 'r';
    buffer = &newBuffer;
    position = 0;
    size = mode == 'w' ? 0 : static_cast<unsigned int>(newBuffer.Length());
}

unsigned int Hmemory::Tell() {
    return position;
}

void Hmemory::Seek(int offset) {
    const auto target = static_cast<unsigned int>(offset);
    if (target > size) {
        Fail(HioErrors::position, HioErrors::bufferSeekFailed);
    }
    position = target;
}

unsigned int Hmemory::SeekEnd() {
    position = size;
    return size;
}

unsigned int Hmemory::GetFileSize() {
    return size;
}

void Hmemory::Write(char* data, unsigned int count) {
    const std::uint64_t end = std::uint64_t{position} + count;
    if (readOnly || end > maxSize) {
        Fail(HioErrors::write, HioErrors::bufferNotWritable);
    }
    if (buffer->Length() < end) {
        const std::uint64_t doubled = std::max(2 * end, firstGrowth);
        buffer->Resize(static_cast<unsigned long>(doubled <= maxSize ? doubled : end));
    }
    if (count != 0) {
        std::memcpy(buffer->Data() + position, data, count);
    }
    position = static_cast<unsigned int>(end);
    size = std::max(size, position);
}

void Hmemory::Read(char* data, unsigned int count) {
    if (count > size - position) {
        Fail(HioErrors::read, HioErrors::bufferReadFailed);
    }
    if (count != 0) {
        std::memcpy(data, buffer->Data() + position, count);
    }
    position += count;
}

void Hmemory::Close() {
    Trim();
    position = 0;
    size = 0;
    readOnly = true;
}

void Hmemory::Trim() {
    if (!readOnly) {
        buffer->Resize(size);
    }
}
