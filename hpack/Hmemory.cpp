#include "hpack/Hmemory.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

static constexpr std::uint64_t maxSize = UINT32_MAX;
static constexpr std::uint64_t firstGrowth = 2000;

struct VANTRY_LOCAL Hmemory::Impl {
    bool readOnly = true;
    qtBuffer* buffer = nullptr;
    unsigned int position = 0;
    unsigned int size = 0;
};

Hmemory::Hmemory() : impl(std::make_unique<Impl>()) {}

Hmemory::~Hmemory() noexcept(false) {
    Trim();
}

void Hmemory::Open(qtBuffer& buffer, char mode) {
    name = "qtBuffer";
    if (buffer.Length() > maxSize) {
        Fail(HioErrors::open, (HioErrors::cannotOpen + name).c_str());
    }
    impl->readOnly = mode == 'r';
    impl->buffer = &buffer;
    impl->position = 0;
    impl->size = mode == 'w' ? 0 : static_cast<unsigned int>(buffer.Length());
}

unsigned int Hmemory::Tell() {
    return impl->position;
}

void Hmemory::Seek(int offset) {
    const auto target = static_cast<unsigned int>(offset);
    if (target > impl->size) {
        Fail(HioErrors::position, HioErrors::bufferSeekFailed);
    }
    impl->position = target;
}

unsigned int Hmemory::SeekEnd() {
    impl->position = impl->size;
    return impl->size;
}

unsigned int Hmemory::GetFileSize() {
    return impl->size;
}

void Hmemory::Write(char* data, unsigned int count) {
    const std::uint64_t end = std::uint64_t{impl->position} + count;
    if (impl->readOnly || end > maxSize) {
        Fail(HioErrors::write, HioErrors::bufferNotWritable);
    }
    qtBuffer& buffer = *impl->buffer;
    if (buffer.Length() < end) {
        const std::uint64_t doubled = std::max(2 * end, firstGrowth);
        buffer.Resize(static_cast<unsigned long>(doubled <= maxSize ? doubled : end));
    }
    if (count != 0) {
        std::memcpy(buffer.Data() + impl->position, data, count);
    }
    impl->position = static_cast<unsigned int>(end);
    impl->size = std::max(impl->size, impl->position);
}

void Hmemory::Read(char* data, unsigned int count) {
    if (count > impl->size - impl->position) {
        Fail(HioErrors::read, HioErrors::bufferReadFailed);
    }
    if (count != 0) {
        std::memcpy(data, impl->buffer->Data() + impl->position, count);
    }
    impl->position += count;
}

void Hmemory::Close() {
    Trim();
    impl->position = 0;
    impl->size = 0;
    impl->readOnly = true;
}

void Hmemory::Trim() {
    if (!impl->readOnly) {
        impl->buffer->Resize(impl->size);
    }
}
