#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "hpack/HpackCodec.h"

namespace vantry_internal {

/// The entries of an index block in key order, used where they lie.
///
/// An entry's length is only known from the entry itself, so every 16th one is marked:
///
///     entries   | K key offset | K key offset | ... | K key offset | ...
///     marks     0                                   16
///
/// A block that is out of order or has a key more than once is copied and sorted first; the last
/// of equal keys counts.
///
/// If the bytes change after loading, the entries found are unspecified, but none reaches outside
/// the block.
class SortedEntries {
public:
    /// An entry: where it is in the block, and how many come before it.
    struct Position {
        std::uint32_t at;
        std::uint32_t number;
    };

    /// Takes the first `expected` entries of `block`, which must outlive this object.
    /// @return false if the block ends before them; the object is then as before
    /// @throws std::bad_alloc
    bool Load(std::string_view block, std::uint32_t expected);

    std::uint32_t Count() const { return count; }
    Position Begin() const { return {0, 0}; }
    Position End() const { return {size, count}; }
    /// The entry at a position other than End().
    HpackIndexEntry At(Position position) const;
    /// The position after one other than End().
    Position Next(Position position) const;
    /// The position before one other than Begin().
    Position Previous(Position position) const;

    /// The first entry for whose key `before(key)` is false, given that it is true for all keys
    /// before that one and false for all after it.
    template <class Before>
    Position FirstNot(Before before) const {
        std::uint32_t low = 0;
        std::uint32_t high = static_cast<std::uint32_t>(marks.size());
        while (low < high) {
            const std::uint32_t middle = low + (high - low) / 2;
            if (before(At(Marked(middle)).key)) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        Position position = low == 0 ? Begin() : Marked(low - 1);
        while (position.number != count && before(At(position).key)) {
            position = Next(position);
        }
        return position;
    }
    Position LowerBound(std::string_view key) const {
        return FirstNot([key](std::string_view other) { return other < key; });
    }

private:
    static constexpr std::uint32_t stride = 16;

    Position Marked(std::uint32_t mark) const { return {marks[mark], mark * stride}; }
    void Sort();

    const char* entries = nullptr;
    std::uint32_t size = 0;   // of all entries
    std::uint32_t count = 0;  // of entries
    std::vector<std::uint32_t> marks;
    std::unique_ptr<char[]> sorted;  // the entries, if the block was out of order
};

}  // namespace vantry_internal
