#pragma once

/// @file
/// Finding out what is wrong with a package.

#include <cstdint>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/Generic32.h"

/// Something that is wrong with a package.
struct HpackFault {
    /// What is wrong.
    enum Kind {
        headerCut,       ///< the stream is too short for a header
        headerMagic,     ///< it does not begin with the magic of a package
        tooLong,         ///< it has more bytes than a package can have
        noIndex,         ///< the header leads to no index: it was created and never closed
        indexOffset,     ///< the header leads to a place where no index can be
        indexMarker,     ///< there is no index where the header leads
        indexCut,        ///< the index has fewer entries than it counts
        keyOrder,        ///< the entry does not come behind the one before it
        keyTwice,        ///< the index has the key again; the last entry counts
        recordOffset,    ///< the entry leads beyond the end of the stream
        recordMarker,    ///< there is no record where the entry leads
        recordKey,       ///< the record there has another key
        recordCut,       ///< the record reaches beyond the end of the stream
        overlapsHeader,  ///< the record, or the index, lies over the header
        overlapsIndex,   ///< the record lies over the index
        overlapsItem,    ///< the record lies over that of `other`
        unreadable,      ///< the stream fails while it is read
    };

    /// The kind as one word, "record-cut".
    VANTRY_EXPORT static const char* Name(Kind kind);
    /// The kind in plain English.
    VANTRY_EXPORT static const char* Text(Kind kind);

    Kind kind;                 ///< what is wrong
    std::uint32_t offset = 0;  ///< where in the stream: of the header, index or record concerned
    bool ofItem = false;       ///< it concerns the item `key`
    qtString key;              ///< the item, where it concerns one
    qtString other;            ///< the key of the other item, where there is one
};

/// What HpackCheck() has found.
struct HpackCheckReport {
    /// Whether nothing is wrong.
    bool Good() const { return faults.empty(); }

    std::uint32_t size = 0;          ///< bytes of the stream
    std::uint32_t items = 0;         ///< keys in the index
    std::uint32_t wholeItems = 0;    ///< of them, those whose records are whole and their own
    std::vector<HpackFault> faults;  ///< header and index first, then items by offset
};

/// Reads all that a package has in use: header, index, every record's marker, key and body.
///
///     Hfile32 file;
///     file.Open("letters.hpk", 'r');
///     for (const HpackFault& fault : HpackCheck(file).faults) ...
///
/// It works on any bytes, also on those that Hpack::Open() refuses. Bodies have no checksum: a body
/// whose bytes have changed is not seen. Dead space is not looked at.
///
/// Each byte is read once, and what is allocated is a few times the size of the index.
/// @param stream any stream that can be read; it is left at no particular offset
/// @throws qtX<HioErr> 2 when the stream can not tell its length
VANTRY_EXPORT HpackCheckReport HpackCheck(Generic32& stream);
