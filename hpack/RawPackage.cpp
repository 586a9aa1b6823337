#include "hpack/RawPackage.h"

#include <algorithm>
#include <cstring>

#include "hpack/HioErrors.h"

using namespace HpackFormat;

namespace vantry_internal {

static constexpr std::uint32_t pageSize = 4096;
static constexpr std::uint32_t maxPages = 64;
static constexpr std::uint32_t sectorSize = 512;

RawPackage::RawPackage(Generic32& package, Poll polled) : stream(package), poll(std::move(polled)) {
    const std::uint32_t length = stream.SeekEnd();
    tooLong = length > maxStreamSize;
    size = std::min(length, maxStreamSize);
    pageNumbers.assign(std::min(maxPages, size / pageSize + 1), noPage);
    pages.resize(pageNumbers.size() * pageSize);
}

bool RawPackage::ReadDirectly(std::uint32_t offset, char* data, std::uint32_t count) {
    poll(pageSize / 8 + count / 8);
    try {
        stream.Seek(static_cast<int>(offset));
        stream.Read(data, count);
        return true;
    } catch (const qtX<HioErr>&) {
        return false;
    }
}

// @return the bytes of a page, or nullptr if they cannot be read
const char* RawPackage::Page(std::uint32_t number) {
    const std::size_t slot = number % pageNumbers.size();
    char* const bytes = pages.data() + slot * pageSize;
    if (pageNumbers[slot] != number) {
        pageNumbers[slot] = noPage;
        const std::uint32_t start = number * pageSize;
        if (!ReadDirectly(start, bytes, std::min(pageSize, size - start))) {
            return nullptr;
        }
        pageNumbers[slot] = number;
    }
    return bytes;
}

bool RawPackage::Read(std::uint64_t offset, char* data, std::uint32_t count) {
    if (offset + count > size) {
        return false;
    }
    auto at = static_cast<std::uint32_t>(offset);
    if (count > pageSize) {
        return ReadDirectly(at, data, count);
    }
    while (count != 0) {
        const std::uint32_t skipped = at % pageSize;
        const std::uint32_t length = std::min(count, pageSize - skipped);
        if (const char* const page = Page(at / pageSize)) {
            std::memcpy(data, page + skipped, length);
        } else if (!ReadDirectly(at, data, length)) {
            return false;
        }
        at += length;
        data += length;
        count -= length;
    }
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
    return ReadText(record.KeyAt(), record.keyLength, key);
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
    char bytes[headerSize];
    header.magic = 0;
    if (!Read(0, bytes, oldHeaderSize)) {
        return header;
    }
    static_cast<HpackHeader&>(header) = DecodeHeaderStart(bytes);
    if (header.IsOld()) {
        header.size = header.Size();
    } else if (header.IsCurrent() && Read(fileIDAt, bytes, identitySize)) {
        DecodeIdentity(bytes, header);
        header.size = header.Size();
    }
    return header;
}

RawPackage::Index RawPackage::ReadIndex(std::uint32_t offset) {
    Index index;
    index.offset = offset;
    index.end = offset;
    char start[indexOverhead];
    if (!Read(offset, start, sizeof start)) {
        return index;
    }
    const HpackBlockStart block = DecodeBlockStart(start);
    index.marked = block.magic == IndexMagic;
    std::uint64_t at = std::uint64_t{offset} + indexOverhead;
    std::uint32_t left = block.count;
    for (; left != 0; --left) {
        poll();
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
        at += IndexEntrySize(entry.keyLength);
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
    poll();
    record = {};
    record.offset = offset;
    return Word(std::uint64_t{offset} + wordSize, record.keyLength) &&
           Word(record.BodyLengthAt(), record.bodyLength) && record.End() <= size;
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
    if (record.KeyAt() + key.size() <= size && !HasKey(record.KeyAt(), key)) {
        return State::otherKey;
    }
    return measured ? State::complete : State::cut;
}

}  // namespace vantry_internal
