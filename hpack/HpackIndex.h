#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "basekit/qtBuffer.h"
#include "hpack/Generic32.h"

namespace vantry_internal {

/// The index of an open package: an ordered map from key to record offset, with keys in the byte
/// order of HpackFormat.h.
///
/// It keeps its entries as an index block stores them, in one piece, and next to them only the
/// position where each one starts. Loading a block is therefore one copy and one pass, and saving
/// is one write:
///
///     entries   | K key offset | K key offset | K key offset | ...      as in the stream
///     order     [ 0, 22, 41, ... ]                                      4 bytes an entry
///     slots     a hash table over order: hash, position                 built when it pays
///
/// `order` ascends by key up to `sorted`; entries added out of order follow until the next save or
/// walk sorts them in. A deleted entry is only marked, so a key that returns finds its entry again;
/// deleted entries are squeezed out when they outweigh the others. Lookups search `order` by
/// halves. The hash table is built when an entry was added out of order, or after so many lookups
/// that building it costs less than they did.
class HpackIndex {
public:
    void Clear();

    /// Reads `expected` entries from the stream, which stands at the first of them. A key that
    /// occurs again replaces its former offset.
    /// @throws the stream's error for an incomplete entry; the entries before it are then in the
    ///         index. Allocates at most a small multiple of what the stream holds.
    void Load(Generic32& stream, std::uint32_t expected);

    /// Puts the entries into the form that Write() writes. @throws std::bad_alloc; the index then
    /// still holds the same entries
    void Arrange();
    /// Writes all entries, in key order, at the stream's current offset. Arrange() must have run
    /// since the last change. Allocates nothing.
    void Write(Generic32& stream);

    /// Whether Write() may write other bytes than those that Load() read or Write() last wrote.
    bool Changed() const { return changed; }

    /// The offset of the key's record. Never fails for lack of memory.
    std::optional<std::uint32_t> Find(std::string_view key);
    /// Adds the key or replaces its offset. @throws std::bad_alloc; nothing has changed then.
    void Set(std::string_view key, std::uint32_t offset);
    /// Allocates what the next Set() of this key needs, so that it cannot fail.
    /// @throws std::bad_alloc
    void Prepare(std::string_view key);
    void Erase(std::string_view key);

    std::uint32_t Count() const { return count; }
    /// The size of all entries in an index block.
    std::uint64_t Bytes() const { return bytes; }

    /// Calls visit(key, offset) in key order for the entries from `from` on, until it returns
    /// false. The key is valid during the call. `visit` may look up keys, but not change the index.
    /// @throws std::bad_alloc before the first call, or what `visit` throws
    template <class Visit>
    void Walk(std::string_view from, Visit visit) {
        Sort();
        for (auto at = LowerBound(from); at != order.end(); ++at) {
            const Entry entry = At(*at);
            if (!entry.deleted && !visit(entry.key, entry.offset)) {
                return;
            }
        }
    }

private:
    using Positions = std::vector<std::uint32_t>;
    struct Entry {
        std::string_view key;
        std::uint32_t offset;
        bool deleted;
    };
    struct Slot {
        std::uint32_t hash;
        std::uint32_t position;  // + 1; 0 in a free slot
    };

    Entry At(std::uint32_t position) const;
    Positions::const_iterator LowerBound(std::string_view key) const;
    std::optional<std::uint32_t> EntryPosition(std::string_view key);
    Slot* FindSlot(std::string_view key, std::uint32_t hash);
    void BuildSlots(std::size_t entriesExpected);
    void FillSlots();
    void Reserve(std::uint64_t length);
    bool IsLast(std::string_view key) const;
    void MakeRoom(std::string_view key);
    void Append(std::string_view key, std::uint32_t offset);
    void LoadEntries(Generic32& stream, std::uint32_t expected);
    std::uint32_t ReadAhead(std::uint32_t expected, std::uint32_t available) const;
    void AcceptEntries(std::uint32_t loaded, std::uint32_t expected);
    void FinishLoading();
    void Sort();
    void Pack();

    qtBuffer entries;  // its length is capacity; `used` bytes of it are entries
    std::uint32_t used = 0;
    Positions order;
    std::size_t sorted = 0;
    std::vector<Slot> slots;  // a power of two of them, or none
    std::uint32_t lookups = 0;
    bool changed = true;
    std::uint32_t count = 0;
    std::uint64_t bytes = 0;
};

}  // namespace vantry_internal
