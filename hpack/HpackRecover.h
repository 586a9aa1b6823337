#pragma once

/// @file
/// Recovers the readable items of a damaged package.

#include <cstdint>
#include <functional>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/Generic32.h"

class Hpack;

/// Options of HpackRecover().
struct HpackRecoverOptions {
    /// Also takes complete records that the index does not list although it is in order: deleted
    /// items, and items added after the last save.
    bool unlisted = false;
    /// Called before each item is copied, with its number, from 0, and the number of items. It may
    /// throw to cancel.
    std::function<void(std::size_t item, std::size_t count)> beforeItem = {};
    /// Called at least every few milliseconds in every step. It may throw to cancel.
    std::function<void()> poll = {};
};

/// A report about one record.
struct HpackRecoverNote {
    /// What happened to the record.
    enum Kind {
        lost,        ///< dropped: the index lists the item, and no complete record of it exists
        cut,         ///< dropped: a record begins here and does not end
        unreadable,  ///< dropped: the stream fails in its key or body
        older,       ///< taken: the record that the index lists is lost, this is another version
        doubtful,    ///< taken: its length may be wrong, or it may be part of another item's body
        crowded,     ///< dropped: doubtful, and too many such records overlap
        unlisted,    ///< not in the index: deleted, or never saved; taken only with `unlisted`
        renamed,     ///< taken: the index lists the record under another key
        setAside,    ///< taken under its key with ".recovered-OFFSET" appended: it is undecided
                     ///< whether this version is newer than the one that has the key
    };

    /// The kind as one word.
    VANTRY_EXPORT static const char* Name(Kind kind);
    /// The kind in plain English.
    VANTRY_EXPORT static const char* Text(Kind kind);

    Kind kind;                 ///< what happened
    std::uint32_t offset = 0;  ///< of the record, or where the index says that it is
    qtString key;              ///< empty if it cannot be read
};

/// The result of HpackRecover().
struct HpackRecoverReport {
    /// The state of the index.
    enum Index {
        none,       ///< none was found; items come from the scan alone
        damaged,    ///< some of its entries lead to items; other items come from the scan
        displaced,  ///< complete, but not where the header leads; later records count as newer
        good,       ///< complete, in order and where the header leads: it decides
    };

    Index index = none;            ///< the state of the index
    bool header = false;           ///< identity and state could be read
    std::uint32_t items = 0;       ///< items in the new package
    std::uint32_t listed = 0;      ///< of them, those that the index led to
    std::uint32_t superseded = 0;  ///< complete records left out because another version was taken
    std::uint32_t unnoted = 0;     ///< notes beyond 65,536, left out unless they are `lost`
    std::vector<HpackRecoverNote> notes;  ///< by offset
};

/// Builds a new package from the readable items of another one that may be damaged, cut or never
/// closed. A package without damage yields the same items, identity and state.
///
///     Hfile32 damaged;
///     damaged.Open("letters.hpk", 'r');
///     Hpack target;
///     target.Open("saved.hpk", 'w');
///     const HpackRecoverReport report = HpackRecover(damaged, target);
///     target.Close();
///
/// The rules:
///
/// - An index that is complete, in order and where the header leads decides which items exist,
///   whatever became of the records. Deleted items stay deleted. A key of which the record is lost
///   is reported, and an older version is used if there is one.
/// - An index that the header does not lead to decides about the records before it. Records after
///   it count as newer.
/// - A damaged index proves the items that it leads to. Other items come from a search for records,
///   and deleted items may reappear.
/// - Without an index, all complete records are items. Of several versions the last in the stream
///   wins, except that a record which an earlier index lists under another key was renamed later.
/// - Bodies may hold bytes that look like records. Those in packages within intact items are not
///   searched. Others are reported as doubtful and never replace a certain version.
/// - If the newer of two versions cannot be determined, both are kept: one under a key with
///   ".recovered-" and the record's offset appended.
///
/// Time grows about linearly with the length of the stream. Memory is usually a small fraction of
/// it, and at most about twenty times that length, for records in one another's keys. Nothing
/// is allocated by a length that the stream does not have, and long bodies are copied in pieces.
/// Records that overlap are copied up to four times the length of the stream in total.
///
/// @param damaged any readable stream; its position changes
/// @param target open in mode 'w', empty. It receives identity, state and items, by their
///        offsets in `damaged`, those set aside last; the caller closes it. An old header stays an
///        old header.
/// @throws qtX<HioErr> errors of writing to `target`; 2 if `damaged` cannot report its length
/// @throws std::bad_alloc, and what the functions in `options` throw. `target` is then incomplete.
VANTRY_EXPORT HpackRecoverReport HpackRecover(Generic32& damaged, Hpack& target,
                                              const HpackRecoverOptions& options = {});
