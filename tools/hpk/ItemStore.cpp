#include "tools/hpk/ItemStore.h"

#include <algorithm>

#include "hpack/HpackFormat.h"
#include "hpack/HpackItemWriter.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

static constexpr unsigned int pieceSize = 256 * 1024;

// Up to this size, bodies are read before anything is written, and may be written in place.
static constexpr unsigned int smallSize = 4U << 20;

ItemStore::ItemStore(const std::string& path, Hpack& copy) : package(copy) {
    PackageReader reader(path);
    unsigned int id = 0;
    unsigned short word = 0;
    unsigned char flags = 0;
    bool old = false;
    copy.GetFileID(id, word, flags, old);
    headerSize = old ? HpackFormat::oldHeaderSize : HpackFormat::headerSize;
    formerSize = reader.Size();
    begins.push_back(reader.IndexOffset());
    for (const qtString& key : reader.Keys()) {
        try {
            begins.push_back(reader.Find(key).offset);
        } catch (const PackageFailure&) {  // no record: nothing to protect
        }
    }
    std::sort(begins.begin(), begins.end());
}

// Whether the key's record is intact and alone in its bytes.
bool ItemStore::IsSound(const qtString& key, unsigned int& bodyLength) {
    unsigned int offset = 0;
    try {
        package.GetKeyInfo(key, offset, bodyLength);
        package.PositionOnKey(key);  // compares the key
    } catch (const qtX<Hpack>&) {
        return false;
    } catch (const qtX<HioErr>&) {
        return false;
    }
    const std::uint64_t end =
        std::uint64_t{offset} + HpackFormat::recordOverhead + key.size() + bodyLength;
    if (offset >= formerSize) {  // appended by this object
        return true;
    }
    const auto next = std::upper_bound(begins.begin(), begins.end(), offset);
    return offset >= headerSize && end <= formerSize && (next == begins.end() || *next >= end);
}

// Reads a body up to its end or up to smallSize bytes. @return whether that was all of it
bool ItemStore::ReadSmall(const PieceReader& read) {
    unsigned int length = 0;
    for (std::size_t count = 1; count != 0 && length < smallSize;) {
        body.size = length;
        body.Grow(length + 1);
        // All of the last segment can be filled.
        body.size = static_cast<unsigned int>(body.segments.size()) * SegBuf::segmentSize;
        char* where = nullptr;
        unsigned int room = 0;
        body.Locate(length, body.size, where, room);
        count = read(where, room);
        length += static_cast<unsigned int>(count);
    }
    body.size = length;
    return length < smallSize;
}

void ItemStore::Put(const qtString& key, const PieceReader& read) {
    if (ReadSmall(read)) {
        PutSmall(key);
        return;
    }
    HpackItemWriter item(package, key);
    for (unsigned int at = 0, run = 0; at < body.size; at += run) {
        char* where = nullptr;
        body.Locate(at, body.size, where, run);
        item.Write(where, run);
    }
    std::vector<char> piece(pieceSize);
    while (const std::size_t count = read(piece.data(), piece.size())) {
        item.Write(piece.data(), static_cast<unsigned int>(count));
    }
    item.Finish();
}

void ItemStore::PutSmall(const qtString& key) {
    unsigned int offset = 0;
    unsigned int length = 0;
    if (package.Contains(key) && IsSound(key, length) && body.size <= length) {
        package.GetKeyInfo(key, offset, length);
    }
    package.AddAtOffset(key, body, offset);
}

void ItemStore::Move(const qtString& oldKey, const qtString& newKey) {
    if (oldKey == newKey) {
        package.PositionOnKey(oldKey);  // an item that is absent or damaged is an error
        return;
    }
    unsigned int length = 0;
    if (newKey.size() > oldKey.size() || IsSound(oldKey, length)) {
        package.Rename(oldKey, newKey);
        return;
    }
    Copy(oldKey, newKey);
    package.Delete(oldKey);
}

void ItemStore::Copy(const qtString& key, const qtString& newKey) {
    unsigned int offset = 0;
    unsigned int length = 0;
    package.GetKeyInfo(key, offset, length);
    unsigned int at = 0;
    Put(newKey, [&](char* data, std::size_t room) {
        const auto count = static_cast<unsigned int>(std::min<std::size_t>(room, length - at));
        package.GetPart(key, at, data, count);
        at += count;
        return count;
    });
}

}  // namespace vantry_tools
