#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

std::atomic<std::size_t> Allocations::largest{0};
std::atomic<long> Allocations::untilFailure{-1};
void (*Allocations::onDelete)(const void*) = nullptr;

void* operator new(std::size_t size) {
    if (size > Allocations::largest) {
        Allocations::largest = size;
    }
    const bool fails = Allocations::untilFailure >= 0 && Allocations::untilFailure-- == 0;
    void* const block = fails ? nullptr : std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

// Sanitizers have their own, which would not come here.
void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return std::malloc(size);
}

void operator delete(void* block) noexcept {
    if (Allocations::onDelete != nullptr && block != nullptr) {
        Allocations::onDelete(block);
    }
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}

void operator delete[](void* block) noexcept {
    operator delete(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}
