#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// A package that is only read: immutable, without copies, safe to share between threads.
///
///     const HpackView letters = HpackView::Map("letters.hpk");
///     if (const std::optional<std::string_view> body = letters.Find("alpha")) ...
///     for (const HpackView::Item item : letters.Prefix("al")) {
///         Use(item.Key(), item.Body());
///     }
///
/// It reads the same packages as Hpack in mode 'r' and returns the same items and errors. Keys and
/// bodies are views of the bytes that the package lies in; they, items and iterators are valid
/// until the view is destroyed or assigned to. Moving a view invalidates none of them, but a view
/// that was moved from may only be destroyed or assigned to.
///
/// Opening walks the index once and keeps about a quarter of a byte for each item. The index is
/// used where it lies, unless it is out of order: then it is copied and sorted. Once lookups have
/// earned it, a hash table of at most 24 bytes per item is built, once. Apart from that, lookups
/// and steps allocate nothing.
///
/// Every constant operation may be called from any number of threads at once, and in a forked
/// child.
///
/// A mapped file must keep its length: if another program truncates it, reading what was cut off
/// ends the process with SIGBUS, as with every mapping. If it is changed in place, results are
/// unspecified, but nothing outside the mapping is read. Writers that replace the file by rename,
/// as `hpk` does, disturb no view. If a file may be truncated while it is in use, read it into
/// memory and view those bytes, or use Hpack.
///
/// Errors are qtX<Hpack> (hpack/HpackErrors.h) and qtX<HioErr> (hpack/HioErrors.h). The name in
/// them is that of the file, or "qtBuffer" for a caller's bytes.
class VANTRY_EXPORT HpackView {
    struct VANTRY_LOCAL Package;

public:
    class Item;
    class Iterator;
    class Range;

    /// Maps a file.
    /// @param fileName a regular file or a block device
    /// @throws qtX<HioErr> 0 "Cannot open file: NAME"; 3 "Read error in file NAME", also if the
    ///         file cannot be mapped, as a FIFO; 2 "SeekEnd error in file NAME" for a package of
    ///         4 GiB or more
    /// @throws qtX<Hpack> 1 "Cannot read file index: NAME",
    ///         3 "Input file is not in expected format: NAME"
    /// @throws std::bad_alloc also if the address space has no room for the file
    static HpackView Map(const qtString& fileName);

    /// Maps a package inside a file.
    /// @param fileName the file
    /// @param offset where the package starts, in bytes; offsets inside the package count from here
    /// @param length the package's length in bytes
    /// @throws as Map(fileName); qtX<HioErr> 3 also if the file ends before the package
    static HpackView Map(const qtString& fileName, std::uint64_t offset, std::uint64_t length);

    /// Views a package in memory.
    /// @param bytes the package, not copied; it must outlive the view and stay unchanged
    /// @throws qtX<HioErr> 0 "Cannot open file: qtBuffer" for 4 GiB or more; 3 "Read error in Hio
    ///         buffer"
    /// @throws qtX<Hpack> 1 and 3, as Map()
    explicit HpackView(std::string_view bytes);
    /// Not of a temporary string, which would be destroyed before the view.
    template <class Text, class = std::enable_if_t<std::is_base_of_v<std::string, Text>>>
    explicit HpackView(Text&& bytes) = delete;

    HpackView(HpackView&& other) noexcept;
    HpackView& operator=(HpackView&& other) noexcept;
    HpackView(const HpackView&) = delete;
    HpackView& operator=(const HpackView&) = delete;
    ~HpackView();

    /// Looks up a key.
    /// @return the item's body, or nothing if there is no such key
    /// @throws qtX<Hpack> 4 "Key points to invalid item: KEY" or "Key points to wrong item: KEY"
    /// @throws qtX<HioErr> 2 or 3 if the record is not entirely in the package
    std::optional<std::string_view> Find(std::string_view key) const;

    /// The number of items.
    std::size_t Count() const;

    /// @name Items in key order: ascending byte by byte, unsigned
    /// None of these throws: an item's record is checked when its body is asked for.
    /// @{

    /// The first item.
    Iterator begin() const;
    /// The end of all items.
    Iterator end() const;
    /// The first item whose key is not less than `key`.
    Iterator LowerBound(std::string_view key) const;
    /// All items whose keys start with `prefix`.
    Range Prefix(std::string_view prefix) const;
    /// @}

    /// Returns the identity; in an old format 0, 0, and 0x80 for Unicode or 0 for ASCII.
    /// @param old whether the package has an old header of 8 bytes
    void GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags, bool& old) const;
    /// Returns the state; 0 in an old format.
    void GetState(unsigned char& state) const;

private:
    VANTRY_LOCAL explicit HpackView(std::unique_ptr<const Package> newPackage);

    std::unique_ptr<const Package> package;
};

/// An item of a view.
class VANTRY_EXPORT HpackView::Item {
public:
    /// The key.
    std::string_view Key() const { return key; }
    /// The body.
    /// @throws as Find()
    std::string_view Body() const;

private:
    friend class Iterator;
    Item(const Package* newPackage, std::string_view newKey, std::uint32_t newOffset)
        : package(newPackage), key(newKey), offset(newOffset) {}

    const Package* package;
    std::string_view key;
    std::uint32_t offset;  // of the record, as the index has it
};

/// A position among the items of a view. A step back takes up to 16 steps through the index.
class VANTRY_EXPORT HpackView::Iterator {
public:
    /// @name For the standard algorithms
    /// @{
    using iterator_category = std::bidirectional_iterator_tag;  ///< steps both ways
    using value_type = Item;                                    ///< returned by value
    using difference_type = std::ptrdiff_t;                     ///< distance in items
    using pointer = const Item*;                                ///< unused
    using reference = Item;                                     ///< as value_type
    /// @}

    /// The end of no view; may only be assigned to, compared and destroyed.
    Iterator() = default;

    /// The item at this position. It does not refer to the iterator.
    Item operator*() const;
    /// Steps to the next item.
    Iterator& operator++();
    /// Steps to the previous item.
    Iterator& operator--();
    /// Steps to the next item. @return the former position
    Iterator operator++(int) {
        const Iterator former = *this;
        ++*this;
        return former;
    }
    /// Steps to the previous item. @return the former position
    Iterator operator--(int) {
        const Iterator former = *this;
        --*this;
        return former;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.number == b.number; }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }

private:
    friend class HpackView;
    Iterator(const Package* newPackage, std::uint32_t newPosition, std::uint32_t newNumber)
        : package(newPackage), position(newPosition), number(newNumber) {}

    const Package* package = nullptr;
    std::uint32_t position = 0;  // of the entry, among those of the index
    std::uint32_t number = 0;    // how many entries come before
};

/// Some successive items of a view.
class HpackView::Range {
public:
    /// The items from `newFirst` up to, but not including, `newLast`.
    Range(Iterator newFirst, Iterator newLast) : first(newFirst), last(newLast) {}
    /// The first item.
    Iterator begin() const { return first; }
    /// The end of the range.
    Iterator end() const { return last; }

private:
    Iterator first;
    Iterator last;
};
