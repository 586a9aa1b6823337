#include "hpack/RawPackage.h"

#include <algorithm>
#include <cstring>

#include "hpack/HpackFormat.h"

using namespace HpackFormat;

static constexpr std::uint32_t windowSize = 16384;
static constexpr std::uint32_t sectorSize = 512;

std::uint64_t RawPackage::Record::BodyAt() const {
    return std::uint64_t{offset} + recordOverhead + keyLength;
}

RawPackage::RawPackage(Generic32& package) : stream(package), window(windowSize) {
    const std::uint32_t length = stream.SeekEnd();
    tooLong = length > maxStreamSize;
    size = std::min(length, maxStreamSize);
}

bool RawPackage::ReadDirectly(std::uint32_t offset, char* data, std::uint32_t count) {
    try {
        stream.Seek(static_cast<int>(offset));
        stream.Read(data, count);
        return true;
    } catch (const qtX<HioErr>&) {
        return false;
    }
}

bool RawPackage::Read(std::uint64_t offset, char* data, std::uint32_t count) {
    if (offset + count > size) {
        return false;
    }
    const auto at = static_cast<std::uint32_t>(offset);
    if (count > windowSize) {
        return ReadDirectly(at, data, count);
    }
    if (at < windowStart || at + count > windowStart + windowLength) {
        windowStart = at;
        windowLength = std::min(windowSize, size - at);
        if (!ReadDirectly(windowStart, window.data(), windowLength)) {
            windowLength = 0;
            return ReadDirectly(at, data, count);
        }
    }
    std::memcpy(data, window.data() + (at - windowStart), count);
    return true;
}

bool RawPackage::Word(std::uint64_t offset, std::uint32_t& word) {
    char bytes[wordSize];
    if (!Read(offset, bytes, sizeof bytes)) {
        return false;
    }
    word = HpackFormat::Word(bytes);
    return true;
}

bool RawPackage::ReadText(std::uint64_t offset, std::uint32_t length, qtString& text) {
    if (offset + length <= size) {
        text.resize(length);
        if (Read(offset, text.data(), length)) {
            return true;
        }
    }
    text.clear();
    return false;
}

bool RawPackage::ReadKey(const Record& record, qtString& key) {
    return ReadText(std::uint64_t{record.offset} + recordKeyAt, record.keyLength, key);
}

void RawPackage::ReadOrZero(std::uint32_t offset, char* data, std::uint32_t count) {
    if (ReadDirectly(offset, data, count)) {
        return;
    }
    for (std::uint32_t done = 0; done < count; done += sectorSize) {
        const std::uint32_t length = std::min(sectorSize, count - done);
        if (!ReadDirectly(offset + done, data + done, length)) {
            std::memset(data + done, 0, length);
        }
    }
}

RawPackage::Header RawPackage::ReadHeader() {
    Header header;
    if (!Word(0, header.magic) || !Word(indexOffsetAt, header.indexOffset)) {
        return header;
    }
    if (header.magic == OldUnicodeMagic || header.magic == OldAsciiMagic) {
        header.whole = true;
        header.size = oldHeaderSize;
        header.fileIDFlags = header.magic == OldUnicodeMagic ? oldUnicodeFlags : 0;
    }
    char bytes[headerSize];
    if (header.magic == PackMagic && Read(0, bytes, sizeof bytes)) {
        header.whole = true;
        header.current = true;
        header.size = headerSize;
        header.fileID = HpackFormat::Word(bytes + fileIDAt);
        header.fileIDFlags = static_cast<std::uint8_t>(bytes[fileIDFlagsAt]);
        header.state = static_cast<std::uint8_t>(bytes[stateAt]);
        qtUnpackUssDiet(header.fileIDWord, bytes + fileIDWordAt);
    }
    return header;
}

RawPackage::Index RawPackage::ReadIndex(std::uint32_t offset) {
    Index index;
    index.offset = offset;
    index.end = offset;
    std::uint32_t magic = 0;
    std::uint32_t count = 0;
    if (!Word(offset, magic) || !Word(std::uint64_t{offset} + wordSize, count)) {
        return index;
    }
    index.marked = magic == IndexMagic;
    std::uint64_t at = std::uint64_t{offset} + indexOverhead;
    std::uint32_t left = count;
    for (; left != 0; --left) {
        Entry entry = {static_cast<std::uint32_t>(index.keys.size()), 0, 0};
        if (!Word(at, entry.keyLength) || !Word(at + wordSize + entry.keyLength, entry.offset)) {
            break;
        }
        index.keys.resize(index.keys.size() + entry.keyLength);
        if (!Read(at + wordSize, index.keys.data() + entry.keyAt, entry.keyLength)) {
            index.keys.resize(entry.keyAt);
            break;
        }
        index.entries.push_back(entry);
        at += entryOverhead + entry.keyLength;
    }
    index.complete = left == 0;
    index.end = static_cast<std::uint32_t>(at);
    return index;
}

bool RawPackage::HasKey(std::uint64_t keyAt, std::string_view key) {
    char piece[1024];
    for (std::size_t done = 0; done < key.size(); done += sizeof piece) {
        const std::string_view part = key.substr(done, sizeof piece);
        if (!Read(keyAt + done, piece, static_cast<std::uint32_t>(part.size())) ||
            part.compare(std::string_view(piece, part.size())) != 0) {
            return false;
        }
    }
    return true;
}

bool RawPackage::Measure(std::uint32_t offset, Record& record) {
    record = {};
    record.offset = offset;
    return Word(std::uint64_t{offset} + wordSize, record.keyLength) &&
           Word(std::uint64_t{offset} + recordKeyAt + record.keyLength, record.bodyLength) &&
           record.End() <= size;
}

RawPackage::State RawPackage::Look(std::uint32_t offset, std::string_view key, Record& record) {
    record = {};
    if (std::uint64_t{offset} + recordOverhead > size) {
        return State::beyondEnd;
    }
    std::uint32_t magic = 0;
    if (!Word(offset, magic)) {
        return State::unreadable;
    }
    if (magic != ItemMagic) {
        return State::noMarker;
    }
    const bool measured = Measure(offset, record);
    if (record.keyLength != key.size()) {
        return measured ? State::otherKey : State::cut;
    }
    const std::uint64_t keyAt = std::uint64_t{offset} + recordKeyAt;
    if (keyAt + key.size() <= size && !HasKey(keyAt, key)) {
        return State::otherKey;
    }
    return measured ? State::whole : State::cut;
}
