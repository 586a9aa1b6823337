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
    offset,  ///< as their records lie in the source
};

/// Called before each item with its number, from 0, and the number of items. It may throw to end
/// the work; what it throws is passed on.
using HpackStep = std::function<void(std::size_t item, std::size_t count)>;

/// Copies items, identity and state, but no dead space.
///
///     Hpack source, target;
///     source.Open("letters.hpk", 'r');
///     target.Open("letters.new", 'w');
///     HpackCompact(source, target);
///     target.Close();
///     target.Open("letters.new", 'r');
///     HpackSame(source, target);        // read back; then sync, and rename over the old one
///
/// An old header becomes an old header again; the 8 bytes after it are then dead. Bodies are copied
/// in pieces: apart from the keys, memory use does not depend on the package.
///
/// @param source open in mode 'r' or 'u'; it is only read
/// @param target open in mode 'w', empty; the caller closes it
/// @param order of the records in the target
/// @param step called before each item, if it is not empty
/// @throws what reading the source and writing the target throw; the caller then discards the
///         target
VANTRY_EXPORT void HpackCompact(Hpack& source, Hpack& target, HpackOrder order = HpackOrder::key,
                                const HpackStep& step = {});

/// Whether two packages, open in mode 'r' or 'u', have the same items, byte for byte, the same kind
/// of header, identity and state. The offsets of records make no difference.
/// @param step called before each item, if it is not empty
/// @throws what reading an item throws
VANTRY_EXPORT bool HpackSame(Hpack& left, Hpack& right, const HpackStep& step = {});
