#pragma once

/// @file
/// The decisions of recovery: which records are items, and under which keys. Nothing here reads a
/// stream, so that a table of cases can test each rule.

#include <cstdint>
#include <utility>
#include <vector>

#include "hpack/HpackCodec.h"
#include "hpack/HpackRecover.h"
#include "hpack/RawPackage.h"

namespace vantry_internal {

/// Confidence that a record is an item of the package, and not bytes of a body or a record with a
/// damaged length. Of two versions of an item the higher confidence wins, then the higher age.
enum class Confidence : std::uint8_t {
    none,      ///< bytes of another item's body
    embedded,  ///< probably part of a package that is or was a body
    doubtful,  ///< its length may be wrong, or it is part of another item's body
    likely,    ///< an intact neighbor starts where it ends, but what precedes it is unknown
    sound,     ///< it also starts where an intact neighbor ends, or an earlier index leads to it
    listed,    ///< an entry of the index leads to it and has its key
};

enum class Verdict : std::uint8_t {
    ignored,     ///< not an item
    taken,       ///< an item of the new package
    setAside,    ///< an item of the new package, under a key that names its offset
    superseded,  ///< another version was taken
    unlisted,    ///< left out: the index does not list it
    crowded,     ///< left out: too many records overlap
};

/// A record that ends within the stream.
struct RecoverCandidate : HpackRecord {
    std::uint32_t key = 0;    ///< equal keys have equal numbers
    std::uint32_t age = 0;    ///< the higher, the later it was written
    std::uint32_t entry = 0;  ///< the number of the index entry that leads to it, from 1, or 0
    bool renamed = false;     ///< that entry has another key
    bool endsAtMark = false;  ///< it ends at the stream's end or at the marker of a record or index
    bool marksInKey = false;  ///< its key, or the length after that, contains a marker
    bool overlaps = false;    ///< it reaches into a listed record or into the index
    bool atStart = false;     ///< it starts where a sound record ends, or is anchored
    bool anchored = false;    ///< an earlier index leads to it, or ends where it starts
    bool embedded = false;    ///< it belongs to a package within a body
    bool suspect = false;     ///< it follows a record or the index of such a package
    Confidence confidence = Confidence::none;
    Verdict verdict = Verdict::ignored;
};

/// A half-open range of offsets.
using RecoverExtent = std::pair<std::uint64_t, std::uint64_t>;

/// What is known about the package apart from its records.
struct RecoverLayout {
    HpackRecoverReport::Index state = HpackRecoverReport::none;
    std::uint32_t size = 0;
    std::uint32_t headerSize = 0;
    RecoverExtent index;        ///< of the index, empty if there is none
    std::uint32_t horizon = 0;  ///< what starts after this was written after the index
};

/// An entry of the index that does not lead to a record with its key.
struct MissingRecord {
    std::uint32_t key;     ///< as in RecoverCandidate
    std::uint32_t offset;  ///< where the entry leads
};

/// Something to report: `lost` about a missing record, anything else about a candidate.
struct RecoverRemark {
    HpackRecoverNote::Kind kind;
    std::uint32_t number;  ///< of the missing record or the candidate
};

/// Sets the confidence of each candidate, and the verdict `crowded`.
/// @param candidates by offset
void WeighCandidates(std::vector<RecoverCandidate>& candidates, const RecoverLayout& layout,
                     Poll& poll);

/// Sets the verdict of each candidate that has some confidence and is not crowded.
/// @param unlisted whether records that an index in order does not list are taken
std::vector<RecoverRemark> DecideCandidates(std::vector<RecoverCandidate>& candidates,
                                            const std::vector<MissingRecord>& missing,
                                            const RecoverLayout& layout, bool unlisted, Poll& poll);

}  // namespace vantry_internal
