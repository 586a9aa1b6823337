#pragma once

/// @file
/// Copying a package without its dead space, and comparing the two.

#include <cstddef>
#include <functional>

#include "basekit/qtString.h"
#include "hpack/Hpack.h"

/// The order of the records in a package.
enum class HpackOrder {
    key,     ///< as the keys ascend
    offset,  ///< as they lay in the source
};

/// Called before each item, with its number, from 0, and how many there are. It may throw to end
/// the work.
using HpackStep = std::function<void(std::size_t item, std::size_t count)>;

/// Copies items, identity and state, and nothing else: no dead space.
///
///     Hpack source, target;
///     source.Open("letters.hpk", 'r');
///     target.Open("letters.new", 'w');
///     HpackCompact(source, target);
///     target.Close();
///     target.Open("letters.new", 'r');
///     HpackSame(source, target);        // read back; then sync, and rename over the old one
///
/// An old header becomes an old header again; 8 bytes behind it are then dead. One body at a time
/// is in memory.
///
/// @param source open in mode 'r' or 'u'; it is only read
/// @param target open in mode 'w', empty; the caller closes it
/// @throws what reading the source and writing the target throw; the target is then to be dropped
VANTRY_EXPORT void HpackCompact(Hpack& source, Hpack& target, HpackOrder order = HpackOrder::key,
                                const HpackStep& step = {});

/// Whether two packages, open in mode 'r' or 'u', have the same items, byte for byte, the same kind
/// of header, identity and state. Where records lie makes no difference.
/// @throws what reading an item throws
VANTRY_EXPORT bool HpackSame(Hpack& left, Hpack& right, const HpackStep& step = {});
