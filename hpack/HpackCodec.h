#pragma once

/// @file
/// Encodes and decodes the structures of a package (HpackFormat.h) in memory.
///
/// Every reader and writer of packages uses these functions; none of them decodes a field itself.
/// They do not judge: callers compare magics, lengths and offsets with what they expect, because
/// the trusting and the distrusting readers report different errors. Sums of offsets and lengths
/// are 64 bits wide and cannot wrap.

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "hpack/HpackFormat.h"

namespace vantry_internal {

/// The fields of a header. An old format stores only the magic and the index offset; its other
/// fields have implied values.
struct HpackHeader {
    bool IsCurrent() const { return magic == HpackFormat::PackMagic; }
    bool IsOld() const {
        return magic == HpackFormat::OldUnicodeMagic || magic == HpackFormat::OldAsciiMagic;
    }
    /// The size in bytes, or 0 if the magic is not that of a package.
    std::uint32_t Size() const {
        return IsCurrent() ? HpackFormat::headerSize : IsOld() ? HpackFormat::oldHeaderSize : 0;
    }

    std::uint32_t magic = HpackFormat::PackMagic;
    std::uint32_t indexOffset = 0;
    std::uint32_t fileID = 0;
    std::uint16_t fileIDWord = 0;
    std::uint8_t fileIDFlags = 0;
    std::uint8_t state = 0;
};

/// The header of an old format that `magic` names, with its implied identity.
inline HpackHeader OldHeader(std::uint32_t magic, std::uint32_t indexOffset) {
    HpackHeader header;
    header.magic = magic;
    header.indexOffset = indexOffset;
    header.fileIDFlags = magic == HpackFormat::OldUnicodeMagic ? HpackFormat::oldUnicodeFlags : 0;
    return header;
}

/// Decodes magic and index offset, the first 8 bytes of every header. The identity of a current
/// header follows: DecodeIdentity().
inline HpackHeader DecodeHeaderStart(const char* in) {
    return OldHeader(HpackFormat::Word(in), HpackFormat::Word(in + HpackFormat::indexOffsetAt));
}

/// The size of the bytes that DecodeIdentity() and EncodeIdentity() use, at offset fileIDAt.
inline constexpr std::uint32_t identitySize = HpackFormat::headerSize - HpackFormat::fileIDAt;

/// Decodes file ID, flags, state and word. `in` points at the byte at offset fileIDAt.
inline void DecodeIdentity(const char* in, HpackHeader& header) {
    using namespace HpackFormat;
    header.fileID = Word(in);
    header.fileIDFlags = static_cast<std::uint8_t>(in[fileIDFlagsAt - fileIDAt]);
    header.state = static_cast<std::uint8_t>(in[stateAt - fileIDAt]);
    qtUnpackUssDiet(header.fileIDWord, in + (fileIDWordAt - fileIDAt));
}

/// Encodes file ID, flags, state and word: identitySize bytes.
inline void EncodeIdentity(const HpackHeader& header, char* out) {
    using namespace HpackFormat;
    PutWord(out, header.fileID);
    out[fileIDFlagsAt - fileIDAt] = static_cast<char>(header.fileIDFlags);
    out[stateAt - fileIDAt] = static_cast<char>(header.state);
    qtPackUssDiet(header.fileIDWord, out + (fileIDWordAt - fileIDAt));
}

/// Encodes a header of the current format: headerSize bytes.
inline void EncodeHeader(const HpackHeader& header, char* out) {
    HpackFormat::PutWord(out, header.magic);
    HpackFormat::PutWord(out + HpackFormat::indexOffsetAt, header.indexOffset);
    EncodeIdentity(header, out + HpackFormat::fileIDAt);
}

/// Where an item record lies, and its lengths.
struct HpackRecord {
    std::uint64_t KeyAt() const { return std::uint64_t{offset} + HpackFormat::recordKeyAt; }
    std::uint64_t BodyLengthAt() const { return KeyAt() + keyLength; }
    std::uint64_t BodyAt() const { return BodyLengthAt() + HpackFormat::wordSize; }
    std::uint64_t End() const { return BodyAt() + bodyLength; }
    std::uint64_t Size() const { return End() - offset; }

    std::uint32_t offset = 0;
    std::uint32_t keyLength = 0;
    std::uint32_t bodyLength = 0;
};

/// The first 8 bytes of a record or of an index block: a magic, and the key length or the number of
/// entries.
struct HpackBlockStart {
    std::uint32_t magic;
    std::uint32_t count;
};

inline HpackBlockStart DecodeBlockStart(const char* in) {
    return {HpackFormat::Word(in), HpackFormat::Word(in + HpackFormat::wordSize)};
}

inline char* EncodeBlockStart(HpackBlockStart start, char* out) {
    return HpackFormat::PutWord(HpackFormat::PutWord(out, start.magic), start.count);
}

/// The size of a record without its body, and of an entry of an index block.
/// @{
inline std::uint64_t RecordHeadSize(std::uint64_t keyLength) {
    return HpackFormat::recordOverhead + keyLength;
}
inline std::uint64_t IndexEntrySize(std::uint64_t keyLength) {
    return HpackFormat::entryOverhead + keyLength;
}
/// @}

/// Encodes a record up to its body: RecordHeadSize() bytes. @return the position after them
inline char* EncodeRecordHead(std::string_view key, std::uint32_t bodyLength, char* out) {
    out = EncodeBlockStart({HpackFormat::ItemMagic, static_cast<std::uint32_t>(key.size())}, out);
    out = std::copy(key.begin(), key.end(), out);
    return HpackFormat::PutWord(out, bodyLength);
}

/// An entry of an index block. The key is a view of the block.
struct HpackIndexEntry {
    std::string_view key;
    std::uint32_t offset;
};

/// Decodes the entry at `in`.
/// @param available the number of bytes at `in`
/// @return false if the entry does not end within them; `entry` is then unchanged
inline bool DecodeIndexEntry(const char* in, std::uint64_t available, HpackIndexEntry& entry) {
    using namespace HpackFormat;
    if (available < entryOverhead) {
        return false;
    }
    // Loaded once: in a mapped file it may change between check and use.
    const std::uint32_t keyLength = Word(in);
    if (available - entryOverhead < keyLength) {
        return false;
    }
    entry.key = {in + wordSize, keyLength};
    entry.offset = Word(in + wordSize + keyLength);
    return true;
}

/// Encodes an entry: IndexEntrySize() bytes. @return the position after them
inline char* EncodeIndexEntry(const HpackIndexEntry& entry, char* out) {
    out = HpackFormat::PutWord(out, static_cast<std::uint32_t>(entry.key.size()));
    out = std::copy(entry.key.begin(), entry.key.end(), out);
    return HpackFormat::PutWord(out, entry.offset);
}

}  // namespace vantry_internal
