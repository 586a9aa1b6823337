#include "hpack/KeySlots.h"

#include <sys/mman.h>
#include <sys/random.h>

#include <algorithm>
#include <cstring>

namespace vantry_internal {

template <class Number>
static std::uint64_t Load(const char* bytes) {
    Number number;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

// Both halves of the product of two 64-bit numbers, combined.
static std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
    __extension__ using Wide = unsigned __int128;
    const Wide product = Wide{a} * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    const std::uint64_t aLow = a & 0xffffffff;
    const std::uint64_t bLow = b & 0xffffffff;
    const std::uint64_t low = aLow * bLow;
    const std::uint64_t middle = (a >> 32) * bLow + (low >> 32);
    const std::uint64_t other = aLow * (b >> 32) + (middle & 0xffffffff);
    const std::uint64_t high = (a >> 32) * (b >> 32) + (middle >> 32) + (other >> 32);
    return (low & 0xffffffff) ^ other << 32 ^ high;
#endif
}

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

void KeySlots::Add(std::string_view key, std::uint32_t number) {
    const std::uint64_t hash = Hash(key);
    auto at = static_cast<std::size_t>(hash) & mask;
    while (slots[at].hash != 0) {
        at = (at + 1) & mask;
    }
    slots[at] = {static_cast<std::uint32_t>(hash >> 32), number};
}

std::optional<std::uint32_t> KeySlots::Find(std::string_view key) const {
    const std::uint64_t hash = Hash(key);
    auto at = static_cast<std::size_t>(hash) & mask;
    while (slots[at].hash != 0) {
        if (slots[at].hash == hash >> 32) {
            return slots[at].number;
        }
        at = (at + 1) & mask;
    }
    return std::nullopt;
}

// The low bits choose the slot, and the high 32, of which one is set, are kept in it.
std::uint64_t KeySlots::Hash(std::string_view key) const {
    constexpr std::uint64_t multiplier = 0x9e3779b97f4a7c15;
    constexpr std::uint64_t inUse = std::uint64_t{1} << 63;
    const char* bytes = key.data();
    std::size_t left = key.size();
    std::uint64_t hash = Mix(seed ^ left, multiplier);
    for (; left > 16; left -= 16, bytes += 16) {
        hash = Mix(Load<std::uint64_t>(bytes) ^ hash,
                   Load<std::uint64_t>(bytes + 8) ^ multiplier ^ seed);
    }
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (left >= 8) {
        first = Load<std::uint64_t>(bytes);
        last = Load<std::uint64_t>(bytes + left - 8);
    } else if (left >= 4) {
        first = Load<std::uint32_t>(bytes);
        last = Load<std::uint32_t>(bytes + left - 4);
    } else if (left > 0) {
        first = Load<std::uint8_t>(bytes) << 8 | Load<std::uint8_t>(bytes + left / 2);
        last = Load<std::uint8_t>(bytes + left - 1);
    }
    return Mix(Mix(first ^ hash, last ^ multiplier ^ seed), multiplier) | inUse;
}

}  // namespace vantry_internal
