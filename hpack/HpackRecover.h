#pragma once

/// @file
/// Saving what can be read of a damaged package.

#include <cstdint>
#include <functional>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/Generic32.h"

class Hpack;

/// What HpackRecover() is to do beyond the usual.
struct HpackRecoverOptions {
    /// Takes whole records, too, that the index does not list although it is in order: what was
    /// deleted, and what was added after the last save.
    bool unlisted = false;
    /// Called before each item is copied, with its number, from 0, and how many there are. It may
    /// throw to end the work.
    std::function<void(std::size_t item, std::size_t count)> beforeItem;
};

/// Something about one record that the user should know.
struct HpackRecoverNote {
    /// What happened to the record.
    enum Kind {
        lost,        ///< dropped: the index lists the item, and no whole record of it is there
        cut,         ///< dropped: a record begins here and does not end
        unreadable,  ///< dropped: the stream fails where the body is
        older,       ///< taken: the record in the index is damaged, this is another version
        doubtful,    ///< taken: its length may be wrong, or it may be part of another item's body
        crowded,     ///< dropped: as before, and such items would make the package too large
        unlisted,    ///< undecided: whole, but not in the index: deleted, or never saved
    };

    /// The kind as one word.
    VANTRY_EXPORT static const char* Name(Kind kind);
    /// The kind in plain English.
    VANTRY_EXPORT static const char* Text(Kind kind);

    Kind kind;                 ///< what happened
    std::uint32_t offset = 0;  ///< of the record, where there is one
    qtString key;              ///< where it can be read
};

/// What HpackRecover() has found.
struct HpackRecoverReport {
    /// In what state the index was.
    enum Index {
        none,     ///< none was found; items come from the scan alone
        damaged,  ///< some of its entries lead to items; the scan has added what it could not tell
        strayed,  ///< the header did not lead to it; it counts for what lies before it
        good,     ///< it is in order: what it does not list was deleted, or never saved
    };

    Index index = none;            ///< the state of the index
    bool header = false;           ///< identity and state could be read
    std::uint32_t items = 0;       ///< items in the new package
    std::uint32_t listed = 0;      ///< of them, those that the index led to
    std::uint32_t superseded = 0;  ///< whole records left out since another version was taken
    std::vector<HpackRecoverNote> notes;  ///< by offset
};

/// Builds a package from whatever can be read of another one, be it damaged, cut, never closed, or
/// whole.
///
///     Hfile32 damaged;
///     damaged.Open("letters.hpk", 'r');
///     Hpack target;
///     target.Open("saved.hpk", 'w');
///     const HpackRecoverReport report = HpackRecover(damaged, target);
///     target.Close();
///
/// Items are found in two ways. The index leads to records; one that has the marker and the key of
/// its entry, and lies over no other, is taken. Besides, the whole stream is searched for the
/// marker of records. Of several versions of an item the indexed one is taken, else the last whole
/// one. Which keys there are is decided
///
/// - by the index, if it is in order: complete, keys ascending, every entry at least leading to a
///   record. Then nothing that was deleted comes back; whole records under other keys are left out
///   and noted, since those of deleted items can not be told from those added after the last save;
/// - by all whole records that are found, if it is not. Then items may come back that were deleted
///   or had another name.
///
/// "The last whole one" is the last in the stream, since records are appended; but one that an
/// index lists by another key was renamed after that, and is newer than all that this index knew.
/// An index that the header does not lead to is the latest that can be found, yet perhaps not the
/// latest that there was: what lies behind all that it knows counts as newer.
///
/// Bodies may hold bytes that look like records, as a package inside a package does. What lies in
/// a record that the index has led to is never searched. Elsewhere a record of which the end meets
/// the end of the stream, another marker or an indexed record is taken for what it says, and not
/// searched, either. A record that ends nowhere in particular has a damaged length, or was once
/// longer: it is taken, and its bytes are searched, too. What is found there behind the magic of a
/// package, and what the index of another package leads to, is noted as doubtful and gives way to
/// every other version. The rest of a package that was a body once, behind a shorter version of it,
/// may be taken for items where no index tells.
///
/// Lengths are compared with what is there before anything is allocated: at any time one body and,
/// a few times, the keys are in memory. A record that the stream can not read is left out.
///
/// @param damaged any stream that can be read; left at no particular offset
/// @param target open in mode 'w', empty. It gets identity, state and items, in the order in which
///        they lie in `damaged`; the caller closes it. An old header becomes an old header again.
/// @throws qtX<HioErr> what writing to `target` throws; 2 when `damaged` can not tell its length
VANTRY_EXPORT HpackRecoverReport HpackRecover(Generic32& damaged, Hpack& target,
                                              const HpackRecoverOptions& options = {});
