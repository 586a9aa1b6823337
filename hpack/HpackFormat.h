#pragma once

#include <cstddef>
#include <cstdint>

#include "hpack/qtPackDiet.h"

/// @file
/// The layout of packages, for those who read or write them by other means than Hpack.

/// The bytes of a package. Integers are unsigned and big-endian (hpack/qtPackDiet.h): u32 in 4
/// bytes, u16 in 2, u8 in 1. Offsets are u32 and count bytes from the start of the stream.
///
///     header, at offset 0
///     +-------+--------------+---------+-------+-------+---------+
///     | magic | index offset | file ID | flags | state | ID word |   16 bytes
///     |  u32  |     u32      |   u32   |  u8   |  u8   |   u16   |   (old formats: the first 8)
///     +-------+--------------+---------+-------+-------+---------+
///
///     item record, anywhere behind the header         index block, anywhere behind the header
///     +-------+---+---------+---+---------+           +-------+-------+
///     | magic | K |   key   | N |  body   |           | magic | count |
///     |  u32  |u32| K bytes |u32| N bytes |           |  u32  |  u32  |
///     +-------+---+---------+---+---------+           +---+---+-----+-+-------------+
///                                                     | K |   key   | record offset |  count
///                                                     times, |u32| K bytes |      u32      |  by
///                                                     key
///                                                     +---+---------+---------------+
///
/// Keys and bodies are any bytes. Index offset 0 means that there is no index. Keys ascend byte by
/// byte, unsigned; a key that another one starts with comes first.
namespace HpackFormat {

inline constexpr std::uint32_t PackMagic = 0x4a5b6c66;        ///< header, current format
inline constexpr std::uint32_t OldUnicodeMagic = 0x4a5b6c70;  ///< header of 8 bytes, flags 0x80
inline constexpr std::uint32_t OldAsciiMagic = 0x4a5b6c71;    ///< header of 8 bytes, flags 0
inline constexpr std::uint32_t IndexMagic = 0x4a5b6c72;       ///< an index block
inline constexpr std::uint32_t ItemMagic = 0x4a5b6c73;        ///< an item record

/// Size of the header.
inline constexpr std::uint32_t headerSize = 16;
/// Size of the header of the old formats.
inline constexpr std::uint32_t oldHeaderSize = 8;
/// What the flags of an old Unicode package read as.
inline constexpr std::uint8_t oldUnicodeFlags = 0x80;

/// In the header: where the offset of the index block is.
inline constexpr std::uint32_t indexOffsetAt = 4;
/// In the header: where the id is.
inline constexpr std::uint32_t fileIDAt = 8;
/// In the header: where the flags are.
inline constexpr std::uint32_t fileIDFlagsAt = 12;
/// In the header: where the state is.
inline constexpr std::uint32_t stateAt = 13;
/// In the header: where the word is.
inline constexpr std::uint32_t fileIDWordAt = 14;

/// Size of one u32: a magic, a length, a count or an offset.
inline constexpr std::uint32_t wordSize = 4;
/// In a record: what stands before the key.
inline constexpr std::uint32_t recordKeyAt = 8;
/// In a record: all that is neither key nor body.
inline constexpr std::uint32_t recordOverhead = 12;
/// In an index block: what stands before the entries.
inline constexpr std::uint32_t indexOverhead = 8;
/// In an index block: what an entry has beside its key.
inline constexpr std::uint32_t entryOverhead = 8;

/// A package ends here at the latest: streams take signed offsets.
inline constexpr std::uint32_t maxStreamSize = 0x7fffffff;

/// The u32 at `in`.
inline std::uint32_t Word(const char* in) {
    unsigned int value;
    qtUnpackUssDiet(value, in);
    return value;
}

/// Writes a u32 at `out`. @return the place behind it
inline char* PutWord(char* out, std::uint32_t value) {
    return out + qtPackUssDiet<unsigned int>(value, out);
}

}  // namespace HpackFormat
