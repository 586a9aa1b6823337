#include "hpack/KeySlots.h"

#include <sys/mman.h>
#include <sys/random.h>

#include <algorithm>

namespace vantry_internal {

// Fewer page faults, and fewer misses of the cache of page addresses.
static void AskForHugePages(void* memory, std::size_t size) {
    constexpr std::uintptr_t hugePage = 1 << 21;
    const auto start = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = (start + hugePage - 1) / hugePage * hugePage;
    const std::uintptr_t last = (start + size) / hugePage * hugePage;
    if (first < last) {
        madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
}

KeySlots::KeySlots(std::uint32_t count) {
    std::size_t size = 16;
    while (size < count + std::size_t{count} / 2) {
        size *= 2;
    }
    mask = size - 1;
    slots.reset(new Slot[size]);
    AskForHugePages(slots.get(), size * sizeof(Slot));
    std::fill_n(slots.get(), size, Slot{0, 0});
    // Without random bytes the seed stays 0, and the table works as well.
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != sizeof seed) {
        seed = 0;
    }
}

void KeySlots::Add(std::uint64_t hash, std::uint32_t number) {
    std::size_t at = First(hash);
    while (slots[at].hash != 0) {
        at = (at + 1) & mask;
    }
    slots[at] = {static_cast<std::uint32_t>(hash >> 32), number};
}

}  // namespace vantry_internal
