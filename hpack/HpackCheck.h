#pragma once

/// @file
/// Checks a package for damage.

#include <cstdint>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/Generic32.h"

/// A fault of a package.
struct HpackFault {
    /// The kind of fault.
    enum Kind {
        headerCut,       ///< the stream is too short for a header
        headerMagic,     ///< it does not start with the magic of a package
        tooLong,         ///< it is longer than a package can be
        noIndex,         ///< the header has no index offset: the package was never closed
        indexOffset,     ///< the header leads to an offset where no index can be
        indexMarker,     ///< there is no index where the header leads
        indexCut,        ///< the index has fewer entries than it counts
        keyOrder,        ///< the entry does not come after the one before it
        keyTwice,        ///< the index has the key again; lookups use the last entry
        recordOffset,    ///< the entry leads beyond the end of the stream
        recordMarker,    ///< there is no record where the entry leads
        recordKey,       ///< the record where the entry leads has another key
        recordCut,       ///< the record reaches beyond the end of the stream
        overlapsHeader,  ///< the record or the index overlaps the header
        overlapsIndex,   ///< the record overlaps the index
        overlapsItem,    ///< the record overlaps that of `other`
        unreadable,      ///< the stream fails while it is read
    };

    /// The kind as one word, such as "record-cut".
    VANTRY_EXPORT static const char* Name(Kind kind);
    /// The kind in plain English.
    VANTRY_EXPORT static const char* Text(Kind kind);

    Kind kind;                 ///< the kind of fault
    std::uint32_t offset = 0;  ///< of the header, index or record concerned
    bool ofItem = false;       ///< whether it concerns the item `key`
    qtString key;              ///< the item, if it concerns one
    qtString other;            ///< the key of the other item, if there is one
};

/// The result of HpackCheck().
struct HpackCheckReport {
    /// Whether there is no fault.
    bool Good() const { return faults.empty(); }

    std::uint32_t size = 0;          ///< bytes of the stream
    std::uint32_t items = 0;         ///< keys in the index
    std::uint32_t wholeItems = 0;    ///< of them, those with an intact record of their own
    std::uint32_t unlisted = 0;      ///< faults beyond those in `faults`
    std::vector<HpackFault> faults;  ///< header and index first, then items by offset
};

/// Checks everything that a package has in use: header, index, and the marker, key and body of
/// every record.
///
///     Hfile32 file;
///     file.Open("letters.hpk", 'r');
///     for (const HpackFault& fault : HpackCheck(file).faults) ...
///
/// It works on any bytes, including those that Hpack::Open() refuses. Bodies have no checksum, so
/// changed bytes in one are not detected. Dead space is not examined.
///
/// Each byte is read at most twice. Memory is a few times the size of the index, plus the faults:
/// at most 65,536 are reported, and fewer if their keys are together longer than the stream.
/// @param stream any readable stream; its position changes
/// @throws qtX<HioErr> 2 if the stream cannot report its length
/// @throws std::bad_alloc
VANTRY_EXPORT HpackCheckReport HpackCheck(Generic32& stream);
