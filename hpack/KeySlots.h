#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

namespace vantry_internal {

/// A random number for HashKey(), the same during the life of the process.
std::uint64_t HashSeed();

/// A hash of the key: the low bits choose a slot, and the highest bit is set, so that no high half
/// is 0. Without knowing the seed, nobody can prepare keys that collide.
inline std::uint64_t HashKey(std::string_view key, std::uint64_t seed);

/// A hash table from keys to numbers that keeps 31 bits of each key's hash, not the key.
///
/// A slot is 8 bytes, so a lookup mostly touches one cache line.
class KeySlots {
public:
    /// An empty table with room for `count` keys.
    /// @throws std::bad_alloc
    explicit KeySlots(std::uint32_t count);

    /// The hash of a key in this table.
    std::uint64_t Hash(std::string_view key) const { return HashKey(key, seed); }
    /// Starts to load the slot that Add() of this hash needs.
    void Prefetch(std::uint64_t hash) const { __builtin_prefetch(&slots[First(hash)], 1); }
    /// Adds a key by its hash. At most `count` may be added, each once.
    void Add(std::uint64_t hash, std::uint32_t number);

    /// @return the number of a key whose hash has the same 31 bits, most likely of `key` itself, or
    ///         nothing if `key` was not added
    std::optional<std::uint32_t> Find(std::string_view key) const {
        const std::uint64_t hash = Hash(key);
        for (std::size_t at = First(hash); slots[at].hash != 0; at = (at + 1) & mask) {
            if (slots[at].hash == hash >> 32) {
                return slots[at].number;
            }
        }
        return std::nullopt;
    }

private:
    struct Slot {
        std::uint32_t hash;  // the high half; 0: empty
        std::uint32_t number;
    };

    std::size_t First(std::uint64_t hash) const { return static_cast<std::size_t>(hash) & mask; }

    std::uint64_t seed = HashSeed();
    std::size_t mask;
    std::unique_ptr<Slot[]> slots;
};

/// Both halves of the product of two 64-bit numbers, combined.
inline std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
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

inline std::uint64_t HashKey(std::string_view key, std::uint64_t seed) {
    constexpr std::uint64_t multiplier = 0x9e3779b97f4a7c15;
    constexpr std::uint64_t highest = std::uint64_t{1} << 63;
    const auto load = [](const char* bytes) {
        std::uint64_t number;
        std::memcpy(&number, bytes, sizeof number);
        return number;
    };
    const auto loadHalf = [](const char* bytes) {
        std::uint32_t number;
        std::memcpy(&number, bytes, sizeof number);
        return std::uint64_t{number};
    };
    const auto byte = [](char c) { return std::uint64_t{static_cast<unsigned char>(c)}; };

    const char* bytes = key.data();
    std::size_t left = key.size();
    std::uint64_t hash = (seed ^ left) * multiplier;
    for (; left > 16; left -= 16, bytes += 16) {
        hash = Mix(load(bytes) ^ hash, load(bytes + 8) ^ multiplier ^ seed);
    }
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (left >= 8) {
        first = load(bytes);
        last = load(bytes + left - 8);
    } else if (left >= 4) {
        first = loadHalf(bytes);
        last = loadHalf(bytes + left - 4);
    } else if (left > 0) {
        first = byte(bytes[0]) << 8 | byte(bytes[left / 2]);
        last = byte(bytes[left - 1]);
    }
    return Mix(Mix(first ^ hash, last ^ multiplier ^ seed), multiplier) | highest;
}

}  // namespace vantry_internal
