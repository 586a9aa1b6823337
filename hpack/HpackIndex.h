#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "basekit/qtBuffer.h"
#include "basekit/qtString.h"
#include "hpack/Generic32.h"

/// The index of an open package: an ordered map from key to record offset, with keys in the byte
/// order of HpackFormat.h.
///
/// It keeps its entries as an index block stores them, in one piece, and beside them only where
/// each one starts. Loading a block is therefore one copy and one pass, and saving a block that
/// came sorted is one write:
///
///     entries   | K key offset | K key offset | K key offset | ...      as in the stream
///     order     [ 0, 22, 41, ... ]                                      4 bytes an entry
///     slots     a hash table over order                                 only when it pays
///
/// `order` ascends by key up to `sorted`; what was added out of order stands behind that until the
/// next save sorts it in. A deleted entry keeps its place and is marked, so a key that comes back
/// finds it. Lookups search `order` by halves; the hash table is built when something was added
/// out of order, or when there have been so many lookups that building it costs less than they did.
class HpackIndex {
public:
    void Clear();

    /// Takes `count` entries from the stream, which stands at the first of them. A key that comes
    /// again replaces its former offset.
    /// @throws what the stream throws for an entry that is not all there; the entries before it are
    ///         then in the index. No more memory is asked for than a few times what the stream has.
    void Load(Generic32& stream, std::uint32_t count);

    /// Writes all entries, in key order, at the stream's current offset.
    void Save(Generic32& stream);

    /// Whether Save() may write other bytes than those that Load() read or Save() last wrote.
    bool Changed() const { return changed; }

    std::optional<std::uint32_t> Find(std::string_view key);
    /// Adds the key or replaces its offset. @throws std::bad_alloc; nothing has changed then.
    void Set(std::string_view key, std::uint32_t offset);
    /// Takes the memory that the next Set() of this key needs, so that it can not fail.
    /// @throws std::bad_alloc
    void Prepare(std::string_view key);
    void Erase(std::string_view key);

    std::uint32_t Count() const { return count; }
    /// What all entries take in an index block.
    std::uint64_t Bytes() const { return bytes; }

    /// Calls visit(key, offset) for every entry in key order; the key is valid during the call.
    template <class Visit>
    void ForEach(Visit visit) const {
        for (const std::uint32_t place : InOrder()) {
            const Entry entry = At(place);
            if (!entry.deleted) {
                visit(entry.key, entry.offset);
            }
        }
    }

private:
    struct Entry {
        std::string_view key;
        std::uint32_t offset;
        bool deleted;
    };

    Entry At(std::uint32_t place) const;
    std::optional<std::uint32_t> Place(std::string_view key);
    std::uint32_t* Slot(std::string_view key);
    void BuildSlots(std::size_t entriesExpected);
    void Reserve(std::uint64_t length);
    bool IsLast(std::string_view key) const;
    void MakeRoom(std::string_view key);
    void Append(std::string_view key, std::uint32_t offset);
    void LoadEntries(Generic32& stream, std::uint32_t expected);
    std::uint32_t ReadAhead(std::uint32_t expected, std::uint32_t available) const;
    void TakeEntries(std::uint32_t loaded, std::uint32_t expected);
    void TakeLoaded();
    std::vector<std::uint32_t> InOrder() const;
    void SortTail(std::vector<std::uint32_t>& places) const;
    void Tidy();
    void Compact();

    qtBuffer entries;  // capacity; `used` bytes of it are entries
    std::uint32_t used = 0;
    std::vector<std::uint32_t> order;
    std::size_t sorted = 0;
    std::vector<std::uint32_t> slots;  // place + 1, or 0; a power of two of them, or none
    std::uint32_t lookups = 0;
    bool changed = true;
    std::uint32_t count = 0;
    std::uint64_t bytes = 0;
};
