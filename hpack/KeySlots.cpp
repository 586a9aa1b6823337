#include "hpack/KeySlots.h"

#include <sys/mman.h>
#include <sys/random.h>

#include <algorithm>

namespace vantry_internal {

// Fewer page faults, and fewer misses of the cache of page addresses.
static void AskForHugePages(void* memory, std::size_t size) {
    constexpr std::size_t hugePage = 1 << 21;
    const std::size_t before = (0 - reinterpret_cast<std::uintptr_t>(memory)) % hugePage;
    if (size >= before + hugePage) {
        madvise(static_cast<char*>(memory) + before, (size - before) / hugePage * hugePage,
                MADV_HUGEPAGE);
    }
}

static std::uint64_t RandomSeed() {
    std::uint64_t seed = 0;
    // Without random bytes it is 0, and tables work as well.
    return getrandom(&seed, sizeof seed, GRND_NONBLOCK) == sizeof seed ? seed : 0;
}

std::uint64_t HashSeed() {
    static const std::uint64_t seed = RandomSeed();
    return seed;
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
}

void KeySlots::Add(std::uint64_t hash, std::uint32_t number) {
    std::size_t at = First(hash);
    while (slots[at].hash != 0) {
        at = (at + 1) & mask;
    }
    slots[at] = {static_cast<std::uint32_t>(hash >> 32), number};
}

}  // namespace vantry_internal
