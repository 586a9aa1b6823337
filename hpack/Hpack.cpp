#include "hpack/Hpack.h"

#include <algorithm>
#include <utility>

#include "hpack/Hfile32.h"
#include "hpack/Hmemory.h"
#include "hpack/HpackFormat.h"
#include "hpack/HpackIndex.h"
#include "hpack/ReadPastEnd.h"

using namespace HpackFormat;

template class qtX<Hpack>;

// Streams only read what they write.
static void Write(Generic32& stream, const char* bytes, std::size_t count) {
    stream.Write(const_cast<char*>(bytes), static_cast<unsigned int>(count));
}

// A package that is not open has a stream that is not, so every operation fails as the stream does.
Hpack::Hpack() : index(std::make_unique<HpackIndex>()) {
    io.stream = qtPtrLight<Generic32>(new Hfile32);
}

Hpack::~Hpack() noexcept(false) {
    // Before sharedBuffer, which a memory stream trims when it goes.
    io.stream = qtPtrLight<Generic32>();
}

void Hpack::Open(const qtString& fileName, char mode) {
    auto file = std::make_unique<Hfile32>();
    file->Open(fileName, mode);
    Replace(qtPtrLight<Generic32>(file.release()));
    VerifyOpen(mode);
}

void Hpack::Open(qtPtr<qtBuffer>& buffer, char mode) {
    if (!buffer) {
        const qtString name("qtBuffer");
        throw qtX<HioErr>((HioErrors::cannotOpen + name).c_str(), HioErrors::open, name);
    }
    auto* const memory = new Hmemory;
    Replace(qtPtrLight<Generic32>(memory));
    try {
        memory->Open(*buffer, mode);
        VerifyOpen(mode);
        sharedBuffer = buffer;
    } catch (...) {
        memory->Close();
        throw;
    }
}

void Hpack::Open(const qtPtrLight<Generic32>& stream, char mode) {
    Replace(stream);
    VerifyOpen(mode);
}

// The former stream, which may be over sharedBuffer, goes first. What it still has to report comes
// out of here, and the package is then closed.
void Hpack::Replace(const qtPtrLight<Generic32>& stream) {
    openMode = 0;
    modified = false;
    index->Clear();
    const qtPtr<qtBuffer> former(std::move(sharedBuffer));
    io.stream = qtPtrLight<Generic32>(new Hfile32);
    io.stream = stream;
}

void Hpack::VerifyOpen(char mode) {
    openMode = mode;
    modified = false;
    index->Clear();
    knownSize = 0;
    switch (mode) {
        case 'r':
            ReadMagic();
            ReadIndex();
            break;
        case 'u':
            ReadMagic();
            indexOffset = ReadIndex();
            if (indexOffset == 0) {
                FailWithStream(HpackErrors::inputHasNoIndex, HpackErrors::noIndex);
            }
            indexSpace = GetIndexSpace();
            break;
        case 'w':
            Create();
            break;
        default:
            throw qtX<Hpack>(HpackErrors::invalidMode, HpackErrors::mode);
    }
}

void Hpack::Create() {
    fileID = 0;
    fileIDWord = 0;
    fileIDFlags = 0;
    state = 0;
    oldFormat = false;
    indexOffset = 0;
    savedAt = 0;
    char header[headerSize] = {};
    PutWord(header, PackMagic);
    Write(*io.stream, header, sizeof header);
    modified = true;
}

void Hpack::ReadMagic() {
    const auto magic = io.Get<unsigned int>();
    indexOffset = io.Get<unsigned int>();
    switch (magic) {
        case PackMagic:
            oldFormat = false;
            fileID = io.Get<unsigned int>();
            fileIDFlags = io.Get<unsigned char>();
            state = io.Get<unsigned char>();
            fileIDWord = io.Get<unsigned short>();
            return;
        case OldUnicodeMagic:
        case OldAsciiMagic:
            TakeOldFormat(magic);
            state = 0;
            return;
        default:
            FailWithStream((HpackErrors::notExpectedFormat + io.stream->Name()).c_str(),
                           HpackErrors::format);
    }
}

void Hpack::TakeOldFormat(unsigned int magic) {
    oldFormat = true;
    fileID = 0;
    fileIDWord = 0;
    fileIDFlags = magic == OldUnicodeMagic ? oldUnicodeFlags : 0;
}

unsigned int Hpack::ReadIndex() {
    index->Clear();
    savedAt = 0;
    unsigned int offset = 0;
    unsigned int count = 0;
    try {
        SeekTo(indexOffsetAt);
        offset = io.Get<unsigned int>();
        if (offset == 0) {
            return 0;
        }
        SeekTo(offset);
        if (io.Get<unsigned int>() != IndexMagic) {
            FailIndex();
        }
        count = io.Get<unsigned int>();
    } catch (const qtX<HioErr>&) {
        FailIndex();
    }
    index->Load(*io.stream, count);
    savedAt = offset;
    return offset;
}

void Hpack::Close() {
    if (openMode == 0) {
        return;
    }
    if (modified) {
        openMode = 'u';
        SaveIndex();
    }
    openMode = 0;
    index->Clear();
    const qtPtr<qtBuffer> untilClosed(std::move(sharedBuffer));
    io.stream->Close();
}

void Hpack::PositionOnKey(const qtString& key) {
    const std::optional<std::uint32_t> offset = index->Find(key);
    if (!offset) {
        FailKey(HpackErrors::missingKey, key);
    }
    SeekTo(*offset);
    if (io.Get<unsigned int>() != ItemMagic) {
        FailKey(HpackErrors::invalidItem, key);
    }
    const auto length = io.Get<unsigned int>();
    if (length != key.size()) {
        if (!Holds(std::uint64_t{*offset} + recordKeyAt + length)) {
            ReadPastEnd(*io.stream);
        }
        FailKey(HpackErrors::wrongItem, key);
    }
    recordHead.resize(length);
    io.stream->Read(recordHead.data(), length);
    if (recordHead != key) {
        FailKey(HpackErrors::wrongItem, key);
    }
}

void Hpack::GetKeyInfo(const qtString& key, unsigned int& offset, unsigned int& size) {
    offset = 0;
    size = 0;
    const std::optional<std::uint32_t> found = index->Find(key);
    if (!found) {
        return;
    }
    SeekTo(*found);
    const auto magic = io.Get<unsigned int>();
    const auto length = io.Get<unsigned int>();
    if (magic != ItemMagic || length != key.size()) {
        FailKey(HpackErrors::invalidItem, key);
    }
    ReadBodyLengthAt(std::uint64_t{*found} + recordKeyAt + length, size);
    offset = *found;
}

// Not a seek alone: a length that reaches beyond the end is to fail as reading does.
void Hpack::ReadBodyLengthAt(std::uint64_t place, unsigned int& length) {
    if (!Holds(place)) {
        ReadPastEnd(*io.stream);
    }
    SeekTo(static_cast<unsigned int>(place));
    length = io.Get<unsigned int>();
}

void Hpack::GetItem(const qtString& key, qtString& value) {
    const unsigned int length = FindBody(key);
    value.resize(length);
    io.stream->Read(value.data(), length);
}

void Hpack::GetItem(const qtString& key, qtBuffer& value) {
    const unsigned int length = FindBody(key);
    value.Resize(length);
    io.stream->Read(value.Data(), length);
}

void Hpack::GetItem(const qtString& key, SegBuf& value) {
    const unsigned int length = FindBody(key);
    value.Grow(length);
    for (unsigned int at = 0, run = 0; at < length; at += run) {
        char* where = nullptr;
        value.Locate(at, length, where, run);
        io.stream->Read(where, run);
    }
}

// Leaves the stream at the body. The length is the body's, but never more than one byte beyond what
// the stream has: reading that fails just as well, and needs no room for what is not there.
unsigned int Hpack::FindBody(const qtString& key) {
    PositionOnKey(key);
    const auto length = io.Get<unsigned int>();
    const std::uint64_t start = io.stream->Tell();
    if (Holds(start + length)) {
        return length;
    }
    return static_cast<unsigned int>(std::max(knownSize, start) - start + 1);
}

bool Hpack::Contains(const qtString& key) const {
    return index->Find(key).has_value();
}

unsigned int Hpack::Count() const {
    return index->Count();
}

void Hpack::GetIndex(std::vector<qtString>& keys) const {
    keys.clear();
    keys.reserve(index->Count());
    index->ForEach([&](std::string_view key, std::uint32_t) { keys.emplace_back(key); });
}

qtString Hpack::MakeStringKey(unsigned int number) {
    char bytes[wordSize];
    PutWord(bytes, number);
    return qtString(bytes, sizeof bytes);
}

void Hpack::AddAtOffset(const qtString& key, const qtBuffer& data, unsigned int offset) {
    RequireRoomForEntry(key, offset);
    AddRecord(key, {data.Data(), data.Length()}, offset);
}

void Hpack::AddAtOffset(const qtString& key, const qtString& data, unsigned int offset) {
    RequireRoomForEntry(key, offset);
    AddRecord(key, data, offset);
}

void Hpack::AddAtOffset(const qtString& key, const SegBuf& data, unsigned int offset) {
    RequireRoomForEntry(key, offset);
    const unsigned int at = BeginRecord(key, data.size, offset);
    for (unsigned int done = 0, run = 0; done < data.size; done += run) {
        char* where = nullptr;
        data.Locate(done, data.size, where, run);
        io.stream->Write(where, run);
    }
    EndRecord(key, data.size, at);
}

void Hpack::AddRecord(const qtString& key, std::string_view body, unsigned int offset) {
    const unsigned int at = BeginRecord(key, body.size(), offset);
    if (!body.empty()) {
        Write(*io.stream, body.data(), body.size());
    }
    EndRecord(key, body.size(), at);
}

// Writes all of a record but its body. @return where the record is
unsigned int Hpack::BeginRecord(const qtString& key, std::uint64_t bodyLength,
                                unsigned int offset) {
    const std::uint64_t length = bodyLength + recordOverhead + key.size();
    unsigned int at = offset;
    if (offset == 0) {
        at = io.stream->SeekEnd();
        // A save that failed may have reserved what the record is to fill: the index then goes
        // elsewhere.
        if (at >= indexOffset && at - indexOffset < indexSpace) {
            indexSpace = 0;
        }
        RequireRoom(key, at + length);
    } else {
        RequireRoom(key, offset + length);
        SeekTo(offset);
        if (offset < headerSize ||
            (offset < std::uint64_t{savedAt} + GetIndexSpace() && offset + length > savedAt)) {
            savedAt = 0;
        }
    }

    recordHead.resize(recordOverhead + key.size());
    char* out = PutWord(recordHead.data(), ItemMagic);
    out = PutWord(out, static_cast<std::uint32_t>(key.size()));
    out = std::copy(key.begin(), key.end(), out);
    PutWord(out, static_cast<std::uint32_t>(bodyLength));
    Write(*io.stream, recordHead.data(), recordHead.size());
    return at;
}

// A new key within what is there: the index grows, and may have to go behind all of it.
void Hpack::RequireRoomForEntry(const qtString& key, unsigned int offset) {
    if (offset != 0 && !index->Find(key)) {
        RequireRoom(key, io.stream->SeekEnd());
    }
}

// What ends at `end` must leave room for the index, where that has to go behind it.
void Hpack::RequireRoom(const qtString& key, std::uint64_t end) {
    std::uint64_t indexSize = indexOverhead + index->Bytes() + entryOverhead + key.size();
    if (end + indexSize <= maxStreamSize) {
        return;
    }
    if (index->Find(key)) {
        indexSize -= entryOverhead + key.size();
    }
    const bool indexMoves = indexOffset == 0 || indexSize > indexSpace;
    if (end + (indexMoves ? indexSize : 0) > maxStreamSize) {
        RefuseWrite();
    }
}

void Hpack::EndRecord(const qtString& key, std::uint64_t bodyLength, unsigned int at) {
    index->Set(key, at);
    modified = true;
    knownSize = std::max(knownSize, bodyLength + recordOverhead + key.size() + at);
}

void Hpack::AddOrUpdate(const qtString& key, const qtString& data) {
    unsigned int offset = 0;
    unsigned int size = 0;
    GetKeyInfo(key, offset, size);
    AddRecord(key, data, data.size() <= size ? offset : 0);
}

void Hpack::Delete(const qtString& key) {
    RequireUpdateMode();
    index->Erase(key);
    modified = true;
}

void Hpack::Rename(const qtString& oldKey, const qtString& newKey) {
    RequireUpdateMode();
    qtString data;
    GetItem(oldKey, data);
    const std::uint32_t offset = index->Find(oldKey).value_or(0);
    // Once the record has its new key, an index with the old one would have lost the item.
    index->Prepare(newKey);
    index->Erase(oldKey);
    try {
        AddAtOffset(newKey, data, newKey.size() <= oldKey.size() ? offset : 0);
    } catch (...) {
        index->Set(oldKey, offset);
        throw;
    }
}

unsigned int Hpack::GetIndexSpace() {
    return static_cast<unsigned int>(indexOverhead + index->Bytes());
}

void Hpack::WriteIndex(unsigned int offset) {
    unsigned int at = offset;
    if (offset == 0) {
        at = io.stream->SeekEnd();
    } else {
        SeekTo(offset);
    }
    if (std::uint64_t{at} + GetIndexSpace() > maxStreamSize) {
        RefuseWrite();
    }
    savedAt = 0;
    char head[indexOverhead];
    PutWord(PutWord(head, IndexMagic), index->Count());
    Write(*io.stream, head, sizeof head);
    index->Save(*io.stream);
    // Last of all, so that the header never leads to a block that is not all there.
    SeekTo(indexOffsetAt);
    io.Put(at);
    savedAt = at;
}

void Hpack::SaveIndex() {
    RequireUpdateMode();
    if (!modified) {
        return;
    }
    const unsigned int needed = GetIndexSpace();
    if (needed > indexSpace) {
        const unsigned int end = io.stream->SeekEnd();
        if (std::uint64_t{end} + needed > maxStreamSize) {
            RefuseWrite();
        }
        indexSpace = needed;
        indexOffset = end;
    }
    if (!IsIndexSaved()) {
        WriteIndex(indexOffset);
    }
    modified = false;
}

// Items replaced in place leave an index of the same bytes, and a block that is not written over
// can not be torn. The stream may have been cut behind the package's back.
bool Hpack::IsIndexSaved() {
    return savedAt != 0 && savedAt == indexOffset && !index->Changed() &&
           io.stream->GetFileSize() >= std::uint64_t{savedAt} + GetIndexSpace();
}

void Hpack::CalculateDeadSpace(unsigned int& fileSize, unsigned int& deadSpace) {
    SaveIndex();
    const unsigned int size = io.stream->SeekEnd();
    unsigned int live = (oldFormat ? oldHeaderSize : headerSize) + GetIndexSpace();
    index->ForEach([&](std::string_view, std::uint32_t offset) {
        SeekTo(offset);
        io.Get<unsigned int>();
        const auto keyLength = io.Get<unsigned int>();
        unsigned int bodyLength = 0;
        ReadBodyLengthAt(std::uint64_t{offset} + recordKeyAt + keyLength, bodyLength);
        live += recordOverhead + keyLength + bodyLength;
    });
    fileSize = size;
    deadSpace = size - live;
}

void Hpack::SetFileID(unsigned int id, unsigned short word, unsigned char flags) {
    if (oldFormat) {
        FailWithStream(HpackErrors::oldFormatID, HpackErrors::oldFormat);
    }
    fileID = id;
    fileIDWord = word;
    fileIDFlags = flags;
    SeekTo(fileIDAt);
    char fields[headerSize - fileIDAt];
    PutWord(fields, fileID);
    fields[fileIDFlagsAt - fileIDAt] = static_cast<char>(fileIDFlags);
    fields[stateAt - fileIDAt] = static_cast<char>(state);
    qtPackUssDiet(fileIDWord, fields + (fileIDWordAt - fileIDAt));
    Write(*io.stream, fields, sizeof fields);
}

void Hpack::GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags) const {
    id = fileID;
    word = fileIDWord;
    flags = fileIDFlags;
}

void Hpack::GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags,
                      bool& old) const {
    GetFileID(id, word, flags);
    old = oldFormat;
}

void Hpack::SetState(unsigned char newState) {
    if (oldFormat) {
        FailWithStream(HpackErrors::oldFormatState, HpackErrors::oldFormat);
    }
    state = newState;
    SeekTo(stateAt);
    io.Put(state);
}

void Hpack::GetState(unsigned char& currentState) const {
    currentState = state;
}

void Hpack::SetOldID(bool unicode) {
    const unsigned int magic = unicode ? OldUnicodeMagic : OldAsciiMagic;
    SeekTo(0);
    io.Put(magic);
    TakeOldFormat(magic);
}

void Hpack::SeekTo(unsigned int offset) {
    io.stream->Seek(static_cast<int>(offset));
}

// Whether the stream reaches to `end`; it is asked only where that is not known.
bool Hpack::Holds(std::uint64_t end) {
    if (end > knownSize) {
        knownSize = io.stream->GetFileSize();
    }
    return end <= knownSize;
}

void Hpack::RequireUpdateMode() const {
    if (openMode != 'u') {
        FailWithStream(HpackErrors::notOpenForUpdate, HpackErrors::notUpdating);
    }
}

void Hpack::FailWithStream(const char* text, HpackErrors::Number number) const {
    throw qtX<Hpack>(text, number, io.stream->Name());
}

void Hpack::FailIndex() const {
    FailWithStream((HpackErrors::cannotReadIndex + io.stream->Name()).c_str(),
                   HpackErrors::indexUnreadable);
}

void Hpack::FailKey(const char* text, const qtString& key) const {
    throw qtX<Hpack>((text + key).c_str(), HpackErrors::key, io.stream->Name(), key);
}

// As the stream refuses what it can not write.
void Hpack::RefuseWrite() const {
    const qtString& name = io.stream->Name();
    const qtString text =
        sharedBuffer ? qtString(HioErrors::bufferNotWritable) : HioErrors::writeFailed + name;
    throw qtX<HioErr>(text.c_str(), HioErrors::write, name);
}
