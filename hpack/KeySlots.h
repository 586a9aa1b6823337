#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace vantry_internal {

/// A hash table from keys to numbers that keeps 31 bits of each key's hash, not the key.
///
/// A slot is 8 bytes, so a lookup mostly touches one cache line. The hash depends on a random seed:
/// keys that collide on purpose cannot be prepared beforehand.
class KeySlots {
public:
    /// An empty table with room for `count` keys.
    /// @throws std::bad_alloc
    explicit KeySlots(std::uint32_t count);

    /// Adds a key. At most `count` may be added, each once.
    void Add(std::string_view key, std::uint32_t number);

    /// @return the number of a key whose hash has the same 31 bits, most likely of `key` itself, or
    ///         nothing if `key` was not added
    std::optional<std::uint32_t> Find(std::string_view key) const;

private:
    struct Slot {
        std::uint32_t hash;  // 0: empty
        std::uint32_t number;
    };

    std::uint64_t Hash(std::string_view key) const;

    std::uint64_t seed = 0;
    std::size_t mask;
    std::unique_ptr<Slot[]> slots;
};

}  // namespace vantry_internal
