#include "hpack/PackageCore.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "hpack/Hfile32.h"
#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/ReadPastEnd.h"

namespace vantry_internal {

using namespace HpackFormat;

static constexpr std::uint32_t pieceSize = 65536;

static std::size_t HeadSize(const qtString& key) {
    return static_cast<std::size_t>(RecordHeadSize(key.size()));
}

PackageCore::PackageCore() {
    io.stream = qtPtrLight<Generic32>(new Hfile32);
}

void PackageCore::Replace(const qtPtrLight<Generic32>& stream) {
    ++openings;
    Reset(0);
    // The former stream may be over this buffer, so it is released first.
    const qtPtr<qtBuffer> former(std::move(sharedBuffer));
    try {
        io.stream = stream;
    } catch (...) {
        io.stream->Close();
        throw;
    }
}

void PackageCore::Reset(char mode) {
    openMode = mode;
    isOpen = false;
    modified = false;
    writeFailed = false;
    savedAt = 0;
    knownSize = 0;
    index.Clear();
}

void PackageCore::SeekTo(std::uint64_t offset) {
    io.stream->Seek(static_cast<int>(offset));
}

bool PackageCore::Holds(std::uint64_t end) {
    if (end > knownSize) {
        knownSize = io.stream->GetFileSize();
    }
    return end <= knownSize;
}

HpackBlockStart PackageCore::ReadBlockStart() {
    char bytes[2 * wordSize];
    io.stream->Read(bytes, sizeof bytes);
    return DecodeBlockStart(bytes);
}

void PackageCore::PositionOnKey(const qtString& key) {
    const std::optional<std::uint32_t> offset = index.Find(key);
    if (!offset) {
        FailKey(HpackErrors::missingKey, key);
    }
    SeekTo(*offset);
    if (io.Get<unsigned int>() != ItemMagic) {
        FailKey(HpackErrors::invalidItem, key);
    }
    const auto length = io.Get<unsigned int>();
    if (length != key.size()) {
        if (!Holds(HpackRecord{*offset, length, 0}.BodyLengthAt())) {
            ReadPastEnd(*io.stream);
        }
        FailKey(HpackErrors::wrongItem, key);
    }
    recordHead.resize(length);
    Read(recordHead.data(), length);
    if (recordHead != key) {
        FailKey(HpackErrors::wrongItem, key);
    }
}

HpackRecord PackageCore::FindBody(const qtString& key) {
    HpackRecord record;
    record.keyLength = static_cast<std::uint32_t>(key.size());
    const std::size_t headSize = HeadSize(key);
    const std::optional<std::uint32_t> offset = index.Find(key);
    // One read, if the record is what it should be. Otherwise PositionOnKey() reports why not.
    if (offset && Holds(std::uint64_t{*offset} + headSize)) {
        SeekTo(*offset);
        recordHead.resize(headSize);
        io.stream->Read(recordHead.data(), static_cast<unsigned int>(headSize));
        const char* const head = recordHead.data();
        const HpackBlockStart start = DecodeBlockStart(head);
        if (start.magic == ItemMagic && start.count == key.size() &&
            std::memcmp(head + recordKeyAt, key.data(), key.size()) == 0) {
            record.offset = *offset;
            record.bodyLength = Word(head + recordKeyAt + key.size());
            return record;
        }
    }
    PositionOnKey(key);
    record.bodyLength = io.Get<unsigned int>();
    record.offset = io.stream->Tell() - static_cast<std::uint32_t>(headSize);
    return record;
}

unsigned int PackageCore::FindBodyToAllocate(const qtString& key) {
    const HpackRecord record = FindBody(key);
    if (Holds(record.End())) {
        return record.bodyLength;
    }
    const std::uint64_t start = record.BodyAt();
    return static_cast<unsigned int>(std::max(knownSize, start) - start + 1);
}

void PackageCore::ReadBodyLength(HpackRecord& record) {
    // Seeking alone would not raise the reading error.
    if (!Holds(record.BodyLengthAt())) {
        ReadPastEnd(*io.stream);
    }
    SeekTo(record.BodyLengthAt());
    record.bodyLength = io.Get<unsigned int>();
}

// Streams only read what they write.
void PackageCore::Write(const char* data, std::size_t count) {
    if (count != 0) {
        io.stream->Write(const_cast<char*>(data), static_cast<unsigned int>(count));
    }
}

void PackageCore::Read(char* data, std::size_t count) {
    if (count != 0) {
        io.stream->Read(data, static_cast<unsigned int>(count));
    }
}

std::uint64_t PackageCore::BeginRecord(const NewRecord& record) {
    const std::uint64_t at = PositionForRecord(record);
    WriteHead(record);
    return at;
}

void PackageCore::EndRecord(const NewRecord& record, std::uint64_t at) {
    RequireWrittenTo(at + RecordHeadSize(record.key.size()) + record.bodyLength);
    EnterRecord(record, at);
}

// A head without the marker: a search for records finds none until this one is complete.
std::uint64_t PackageCore::ReserveRecord(const NewRecord& record) {
    const std::uint64_t at = PositionForRecord(record);
    recordHead.assign(HeadSize(record.key), '\0');
    Write(recordHead.data(), recordHead.size());
    RequireWrittenTo(at + recordHead.size());
    return at;
}

void PackageCore::CompleteRecord(const NewRecord& record, std::uint64_t at) {
    index.Prepare(record.key);
    SeekTo(at);
    WriteHead(record);
    RequireWrittenTo(at + RecordHeadSize(record.key.size()));
    EnterRecord(record, at);
}

// Makes sure that the record has room. @return its offset, where the stream then stands
std::uint64_t PackageCore::PositionForRecord(const NewRecord& record) {
    const std::uint64_t size = RecordHeadSize(record.key.size()) + record.bodyLength;
    const std::uint64_t at = record.offset;
    if (at == 0) {
        const std::uint64_t end = Size();
        // A save that failed may have reserved what the record is to fill; the index then moves.
        const bool takesReservation =
            end >= header.indexOffset && end - header.indexOffset < indexSpace;
        RequireRoom(record, end + size, takesReservation);
        if (takesReservation) {
            indexSpace = 0;
        }
        return end;
    }
    // With a new key the index grows and may have to move to the end.
    const std::uint64_t end = record.keepsEntry || index.Find(record.key) ? 0 : Size();
    RequireRoom(record, std::max(end, at + size), false);
    SeekTo(at);
    if (at < headerSize || (at < savedAt + savedSize && at + size > savedAt)) {
        savedAt = 0;
    }
    return at;
}

void PackageCore::WriteHead(const NewRecord& record) {
    recordHead.resize(HeadSize(record.key));
    EncodeRecordHead(record.key, static_cast<std::uint32_t>(record.bodyLength), recordHead.data());
    Write(recordHead.data(), recordHead.size());
}

void PackageCore::EnterRecord(const NewRecord& record, std::uint64_t at) {
    index.Set(record.key, static_cast<std::uint32_t>(at));
    modified = true;
    knownSize = std::max(knownSize, at + RecordHeadSize(record.key.size()) + record.bodyLength);
}

void PackageCore::RequireWrittenTo(std::uint64_t end) const {
    if (io.stream->Tell() != end) {
        RefuseWrite();
    }
}

void PackageCore::RequireRoom(const NewRecord& record, std::uint64_t end, bool reservationLost) {
    const std::uint64_t entry = IndexEntrySize(record.key.size());
    std::uint64_t size = IndexSize() + entry;
    if (end + size <= maxStreamSize) {
        return;
    }
    size -= record.freedIndex + (index.Find(record.key) ? entry : 0);
    const bool moves = reservationLost || header.indexOffset == 0 || size > indexSpace;
    if (end + (moves ? size : 0) > maxStreamSize) {
        RefuseWrite();
    }
}

std::string PackageCore::ReadThrough(const HpackRecord& record) {
    std::string piece(std::min(record.bodyLength, pieceSize), '\0');
    for (std::uint32_t left = record.bodyLength, count = 0; left != 0; left -= count) {
        count = std::min(left, pieceSize);
        Read(piece.data(), count);
    }
    return piece;
}

void PackageCore::CopyBody(const HpackRecord& record, std::string& piece) {
    if (piece.size() == record.bodyLength) {
        Write(piece.data(), piece.size());
        return;
    }
    const std::uint64_t to = io.stream->Tell();
    for (std::uint32_t done = 0, count = 0; done < record.bodyLength; done += count) {
        count = std::min(record.bodyLength - done, pieceSize);
        SeekTo(record.BodyAt() + done);
        Read(piece.data(), count);
        SeekTo(to + done);
        Write(piece.data(), count);
    }
}

unsigned int PackageCore::ReadIndex() {
    index.Clear();
    savedAt = 0;
    HpackBlockStart start = {};
    unsigned int offset = 0;
    try {
        SeekTo(indexOffsetAt);
        offset = io.Get<unsigned int>();
        if (offset == 0) {
            return 0;
        }
        SeekTo(offset);
        start = ReadBlockStart();
    } catch (const qtX<HioErr>&) {
        FailIndex();
    }
    if (start.magic != IndexMagic) {
        FailIndex();
    }
    index.Load(*io.stream, start.count);
    savedAt = offset;
    savedSize = IndexSize();
    return offset;
}

void PackageCore::WriteIndexAt(std::uint64_t at) {
    // All memory first: a block that is written half would be worse than the former one.
    index.Arrange();
    SeekTo(at);
    savedAt = 0;
    char start[indexOverhead];
    EncodeBlockStart({IndexMagic, index.Count()}, start);
    Write(start, sizeof start);
    index.Write(*io.stream);
    RequireWrittenTo(at + IndexSize());
    // Last of all, so that the header never leads to an incomplete block. Positioning makes a file
    // stream write out what it has buffered: before the header, and the header itself.
    SeekTo(indexOffsetAt);
    io.Put(static_cast<unsigned int>(at));
    SeekTo(0);
    savedAt = at;
    savedSize = IndexSize();
    writeFailed = false;
}

bool PackageCore::SaveMovesIndex() const {
    return header.indexOffset == 0 || IndexSize() > indexSpace;
}

void PackageCore::WriteIndex(unsigned int offset) {
    const std::uint64_t end = Size();
    const std::uint64_t at = offset == 0 ? end : offset;
    const std::uint64_t newEnd = at + IndexSize();
    // A save that is due must still find room at the end.
    const std::uint64_t due = modified && newEnd > end && SaveMovesIndex() ? IndexSize() : 0;
    if (newEnd + due > maxStreamSize) {
        RefuseWrite();
    }
    WriteIndexAt(at);
}

void PackageCore::SaveIndex() {
    RequireUpdateMode();
    if (!modified) {
        SeekTo(0);  // identity and state may wait in a file stream's buffer
        return;
    }
    index.Arrange();
    if (SaveMovesIndex()) {
        const std::uint64_t end = Size();
        if (end + IndexSize() > maxStreamSize) {
            RefuseWrite();
        }
        indexSpace = std::max(indexSpace, IndexSize());
        header.indexOffset = static_cast<std::uint32_t>(end);
    }
    if (!IsIndexSaved()) {
        WriteIndexAt(header.indexOffset);
    }
    modified = false;
}

// Items replaced in place leave an index of the same bytes, and a block that is not rewritten
// cannot be torn. Somebody else may have truncated the stream.
bool PackageCore::IsIndexSaved() {
    return savedAt != 0 && savedAt == header.indexOffset && !index.Changed() && !writeFailed &&
           io.stream->GetFileSize() >= savedAt + savedSize;
}

std::uint64_t PackageCore::RecordBytes() {
    std::uint64_t sum = 0;
    index.Walk({}, [&](std::string_view, std::uint32_t offset) {
        SeekTo(offset);
        HpackRecord record{offset, ReadBlockStart().count, 0};
        ReadBodyLength(record);
        sum += record.Size();
        return true;
    });
    return sum;
}

void PackageCore::RequireUpdateMode() const {
    if (openMode != 'u') {
        FailWithStream(HpackErrors::notOpenForUpdate, HpackErrors::notUpdating);
    }
}

void PackageCore::FailWithStream(const char* text, HpackErrors::Number number) const {
    throw qtX<Hpack>(text, number, io.stream->Name());
}

void PackageCore::FailIndex() const {
    FailWithStream((HpackErrors::cannotReadIndex + io.stream->Name()).c_str(),
                   HpackErrors::indexUnreadable);
}

void PackageCore::FailKey(const char* text, const qtString& key) const {
    throw qtX<Hpack>((text + key).c_str(), HpackErrors::key, io.stream->Name(), key);
}

void PackageCore::RefuseWrite() const {
    FailAsStream(HioErrors::write, HioErrors::bufferNotWritable, HioErrors::writeFailed);
}

void PackageCore::FailRead() const {
    FailAsStream(HioErrors::read, HioErrors::bufferReadFailed, HioErrors::readFailed);
}

void PackageCore::FailAsStream(HioErrors::Number number, const char* ofBuffer,
                               const char* ofFile) const {
    const qtString& name = io.stream->Name();
    const bool isBuffer = dynamic_cast<const Hmemory*>(io.stream.Get()) != nullptr;
    throw qtX<HioErr>((isBuffer ? qtString(ofBuffer) : ofFile + name).c_str(), number, name);
}

}  // namespace vantry_internal
