#pragma once

#include <cstddef>
#include <cstdint>

#include "hpack/qtPackDiet.h"

/// @file
/// The layout of packages, for programs that read or write them without Hpack.

/// The bytes of a package. Integers are unsigned and big-endian (hpack/qtPackDiet.h): u32 in 4
/// bytes, u16 in 2, u8 in 1. Offsets are u32 and count bytes from the start of the stream.
///
///     header, at offset 0
///     +-------+--------------+---------+-------+-------+---------+
///     | magic | index offset | file ID | flags | state | ID word |   16 bytes
///     |  u32  |     u32      |   u32   |  u8   |  u8   |   u16   |   (old formats: the first 8)
///     +-------+--------------+---------+-------+-------+---------+
///
///     item record, anywhere after the header
///     +-------+-----+---------+-----+---------+
///     | magic |  K  |   key   |  N  |  body   |
///     |  u32  | u32 | K bytes | u32 | N bytes |
///     +-------+-----+---------+-----+---------+
///
///     index block, anywhere after the header: one entry for each key, in ascending order
///     +-------+-------+-----+---------+---------------+-----+---------+---------------+--
///     | magic | count |  K  |   key   | record offset |  K  |   key   | record offset | ...
///     |  u32  |  u32  | u32 | K bytes |      u32      | u32 | K bytes |      u32      |
///     +-------+-------+-----+---------+---------------+-----+---------+---------------+--
///
/// Keys and bodies are any bytes. Index offset 0 means that there is no index. Keys ascend byte by
/// byte, unsigned; a key that is a prefix of another comes first.
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
/// The flags that an old Unicode package is read with.
inline constexpr std::uint8_t oldUnicodeFlags = 0x80;

/// Offset, in the header, of the index block's offset.
inline constexpr std::uint32_t indexOffsetAt = 4;
/// Offset, in the header, of the file ID.
inline constexpr std::uint32_t fileIDAt = 8;
/// Offset, in the header, of the flags.
inline constexpr std::uint32_t fileIDFlagsAt = 12;
/// Offset, in the header, of the state.
inline constexpr std::uint32_t stateAt = 13;
/// Offset, in the header, of the ID word.
inline constexpr std::uint32_t fileIDWordAt = 14;

/// Size of one u32: a magic, a length, a count or an offset.
inline constexpr std::uint32_t wordSize = 4;
/// Offset, in a record, of the key.
inline constexpr std::uint32_t recordKeyAt = 8;
/// Bytes of a record that are neither key nor body.
inline constexpr std::uint32_t recordOverhead = 12;
/// Bytes of an index block before the entries.
inline constexpr std::uint32_t indexOverhead = 8;
/// Bytes of an entry of an index block that are not its key.
inline constexpr std::uint32_t entryOverhead = 8;

/// The largest size of a package: streams take signed offsets.
inline constexpr std::uint32_t maxStreamSize = 0x7fffffff;

/// Returns the u32 at `in`.
inline std::uint32_t Word(const char* in) {
    unsigned int value;
    qtUnpackUssDiet(value, in);
    return value;
}

/// Writes a u32 at `out`. @return the position after it
inline char* PutWord(char* out, std::uint32_t value) {
    return out + qtPackUssDiet<unsigned int>(value, out);
}

}  // namespace HpackFormat
