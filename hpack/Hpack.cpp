#include "hpack/Hpack.h"

#include <algorithm>
#include <utility>

#include "hpack/Hfile32.h"
#include "hpack/Hmemory.h"
#include "hpack/HpackFormat.h"
#include "hpack/PackageCore.h"
#include "hpack/ReadPastEnd.h"

using namespace HpackFormat;
using namespace vantry_internal;

template class qtX<Hpack>;

Hpack::Hpack() = default;
Hpack::Hpack(Hpack&& other) noexcept = default;

Hpack::~Hpack() noexcept(false) {
    if (core) {
        // Before the buffer, which a memory stream trims when it is destroyed; and here, because a
        // std::unique_ptr would end the process when a stream's destructor throws.
        core->io.stream = qtPtrLight<Generic32>();
    }
}

PackageCore& Hpack::Core() const {
    if (!core) {
        core = std::make_unique<PackageCore>();
    }
    return *core;
}

void Hpack::Open(const qtString& fileName, char mode) {
    auto file = std::make_unique<Hfile32>();
    file->Open(fileName, mode);
    Core().Replace(qtPtrLight<Generic32>(file.release()));
    VerifyOpen(mode);
}

static void RequireTarget(bool exists, const char* name) {
    if (!exists) {
        throw qtX<HioErr>((qtString(HioErrors::cannotOpen) + name).c_str(), HioErrors::open,
                          qtString(name));
    }
}

void Hpack::Open(qtPtr<qtBuffer>& buffer, char mode) {
    RequireTarget(static_cast<bool>(buffer), "qtBuffer");
    auto* const memory = new Hmemory;
    const qtPtrLight<Generic32> stream(memory);
    Core().Replace(stream);
    try {
        memory->Open(*buffer, mode);
        VerifyOpen(mode);
        core->sharedBuffer = buffer;
    } catch (...) {
        memory->Close();
        throw;
    }
}

void Hpack::Open(const qtPtrLight<Generic32>& stream, char mode) {
    RequireTarget(static_cast<bool>(stream), "");
    Core().Replace(stream);
    VerifyOpen(mode);
}

void Hpack::VerifyOpen(char mode) {
    Core().Reset(mode);
    switch (mode) {
        case 'r':
            ReadMagic();
            ReadIndex();
            break;
        case 'u':
            ReadMagic();
            core->header.indexOffset = ReadIndex();
            if (core->header.indexOffset == 0) {
                core->FailWithStream(HpackErrors::inputHasNoIndex, HpackErrors::noIndex);
            }
            core->indexSpace = core->IndexSize();
            break;
        case 'w': {
            core->header = HpackHeader();
            char bytes[headerSize];
            EncodeHeader(core->header, bytes);
            core->Write(bytes, sizeof bytes);
            core->modified = true;
            break;
        }
        default:
            throw qtX<Hpack>(HpackErrors::invalidMode, HpackErrors::mode);
    }
    core->isOpen = true;
}

void Hpack::ReadMagic() {
    char bytes[headerSize];
    Core().io.stream->Read(bytes, fileIDAt);
    core->header = DecodeHeaderStart(bytes);
    if (core->header.IsCurrent()) {
        core->io.stream->Read(bytes + fileIDAt, identitySize);
        DecodeIdentity(bytes + fileIDAt, core->header);
    } else if (!core->header.IsOld()) {
        core->FailWithStream((HpackErrors::notExpectedFormat + core->io.stream->Name()).c_str(),
                             HpackErrors::format);
    }
}

unsigned int Hpack::ReadIndex() {
    return Core().ReadIndex();
}

void Hpack::Close() {
    if (!core || core->openMode == 0) {
        return;
    }
    if (core->modified) {
        core->openMode = 'u';
        core->SaveIndex();
    }
    ++core->openings;
    core->Reset(0);
    const qtPtr<qtBuffer> untilClosed(std::move(core->sharedBuffer));
    core->io.stream->Close();
}

bool Hpack::IsOpen() const {
    return core && core->isOpen;
}

void Hpack::PositionOnKey(const qtString& key) {
    Core().PositionOnKey(key);
}

void Hpack::GetKeyInfo(const qtString& key, unsigned int& offset, unsigned int& size) {
    offset = 0;
    size = 0;
    const std::optional<std::uint32_t> found = Core().index.Find(key);
    if (!found) {
        return;
    }
    core->SeekTo(*found);
    const HpackBlockStart start = core->ReadBlockStart();
    if (start.magic != ItemMagic || start.count != key.size()) {
        core->FailKey(HpackErrors::invalidItem, key);
    }
    HpackRecord record{*found, start.count, 0};
    core->ReadBodyLength(record);
    size = record.bodyLength;
    offset = record.offset;
}

void Hpack::GetItem(const qtString& key, qtString& value) {
    const unsigned int length = Core().FindBodyToAllocate(key);
    value.resize(length);
    core->Read(value.data(), length);
}

void Hpack::GetItem(const qtString& key, qtBuffer& value) {
    const unsigned int length = Core().FindBodyToAllocate(key);
    value.Resize(length);
    core->Read(value.Data(), length);
}

void Hpack::GetItem(const qtString& key, SegBuf& value) {
    const unsigned int length = Core().FindBodyToAllocate(key);
    value.Grow(length);
    for (unsigned int at = 0, run = 0; at < length; at += run) {
        char* where = nullptr;
        value.Locate(at, length, where, run);
        core->io.stream->Read(where, run);
    }
}

void Hpack::GetPart(const qtString& key, unsigned int from, char* data, unsigned int count) {
    const HpackRecord record = Core().FindBody(key);
    const std::uint64_t start = record.BodyAt() + from;
    if (start + count > record.End() || !core->Holds(start + count)) {
        core->FailRead();
    }
    core->SeekTo(start);
    core->Read(data, count);
}

bool Hpack::Contains(const qtString& key) const {
    return Core().index.Find(key).has_value();
}

unsigned int Hpack::Count() const {
    return core ? core->index.Count() : 0;
}

void Hpack::GetIndex(std::vector<qtString>& keys) const {
    keys.clear();
    keys.reserve(Count());
    Core().index.Walk({}, [&](std::string_view key, std::uint32_t) {
        keys.emplace_back(key);
        return true;
    });
}

void Hpack::ForEach(const KeyVisit& visit) const {
    Core().index.Walk({}, [&](std::string_view key, std::uint32_t) {
        visit(key);
        return true;
    });
}

void Hpack::ForEach(std::string_view prefix, const KeyVisit& visit) const {
    Core().index.Walk(prefix, [&](std::string_view key, std::uint32_t) {
        const bool inside = key.substr(0, prefix.size()) == prefix;
        if (inside) {
            visit(key);
        }
        return inside;
    });
}

void Hpack::ForEach(std::string_view from, std::string_view to, const KeyVisit& visit) const {
    Core().index.Walk(from, [&](std::string_view key, std::uint32_t) {
        const bool inside = key < to;
        if (inside) {
            visit(key);
        }
        return inside;
    });
}

qtString Hpack::MakeStringKey(unsigned int number) {
    char bytes[wordSize];
    PutWord(bytes, number);
    return qtString(bytes, sizeof bytes);
}

// What a body consists of, for each kind that there is.
static std::uint64_t BodyLength(const qtString& body) {
    return body.size();
}
static std::uint64_t BodyLength(const qtBuffer& body) {
    return body.Length();
}
static std::uint64_t BodyLength(const SegBuf& body) {
    return body.size;
}

static void WriteBody(PackageCore& core, const qtString& body) {
    core.Write(body.data(), body.size());
}
static void WriteBody(PackageCore& core, const qtBuffer& body) {
    core.Write(body.Data(), body.Length());
}
static void WriteBody(PackageCore& core, const SegBuf& body) {
    for (unsigned int done = 0, run = 0; done < body.size; done += run) {
        char* where = nullptr;
        body.Locate(done, body.size, where, run);
        core.Write(where, run);
    }
}

template <class Body>
static void AddBody(PackageCore& core, const qtString& key, const Body& body, unsigned int offset,
                    bool keepsEntry) {
    core.WriteRecord({key, BodyLength(body), offset, keepsEntry}, [&] { WriteBody(core, body); });
}

template <class Body>
static void AddOrUpdateBody(Hpack& package, const qtString& key, const Body& body) {
    unsigned int offset = 0;
    unsigned int size = 0;
    package.GetKeyInfo(key, offset, size);
    const bool fits = offset != 0 && BodyLength(body) <= size;
    AddBody(PackageCore::Of(package), key, body, fits ? offset : 0, fits);
}

void Hpack::AddAtOffset(const qtString& key, const qtBuffer& data, unsigned int offset) {
    AddBody(Core(), key, data, offset, false);
}

void Hpack::AddAtOffset(const qtString& key, const qtString& data, unsigned int offset) {
    AddBody(Core(), key, data, offset, false);
}

void Hpack::AddAtOffset(const qtString& key, const SegBuf& data, unsigned int offset) {
    AddBody(Core(), key, data, offset, false);
}

void Hpack::AddOrUpdate(const qtString& key, const qtString& data) {
    AddOrUpdateBody(*this, key, data);
}

void Hpack::AddOrUpdate(const qtString& key, const qtBuffer& data) {
    AddOrUpdateBody(*this, key, data);
}

void Hpack::AddOrUpdate(const qtString& key, const SegBuf& data) {
    AddOrUpdateBody(*this, key, data);
}

void Hpack::Delete(const qtString& key) {
    Core().RequireUpdateMode();
    core->index.Erase(key);
    core->modified = true;
}

void Hpack::Rename(const qtString& oldKey, const qtString& newKey) {
    Core().RequireUpdateMode();
    const HpackRecord record = core->FindBody(oldKey);
    // Read before anything is written, so that an item that cannot be read stays as it is.
    if (!core->Holds(record.End())) {
        ReadPastEnd(*core->io.stream);
    }
    std::string piece = core->ReadThrough(record);
    // Once the record has its new key, an index with the old one would have lost the item.
    core->index.Prepare(newKey);
    const bool same = oldKey == newKey;
    const bool fits = newKey.size() <= oldKey.size();
    const PackageCore::NewRecord renamed{newKey, record.bodyLength, fits ? record.offset : 0, same,
                                         same ? 0 : IndexEntrySize(oldKey.size())};
    core->WriteRecord(renamed, [&] { core->CopyBody(record, piece); });
    if (!same) {
        core->index.Erase(oldKey);
    }
}

unsigned int Hpack::GetIndexSpace() {
    return static_cast<unsigned int>(Core().IndexSize());
}

void Hpack::WriteIndex(unsigned int offset) {
    Core().WriteIndex(offset);
}

void Hpack::SaveIndex() {
    Core().SaveIndex();
}

void Hpack::CalculateDeadSpace(unsigned int& fileSize, unsigned int& deadSpace) {
    SaveIndex();
    const auto size = static_cast<unsigned int>(core->Size());
    const std::uint64_t live = core->header.Size() + core->IndexSize() + core->RecordBytes();
    fileSize = size;
    deadSpace = size - static_cast<unsigned int>(live);
}

HpackLayout Hpack::GetLayout() {
    HpackLayout layout;
    layout.size = static_cast<std::uint32_t>(Core().io.stream->GetFileSize());
    layout.headerSize = core->header.Size();
    if (core->savedAt != 0) {
        layout.indexOffset = static_cast<std::uint32_t>(core->savedAt);
        layout.indexSize = static_cast<std::uint32_t>(core->savedSize);
    }
    layout.recordBytes = core->RecordBytes();
    return layout;
}

void Hpack::SetFileID(unsigned int id, unsigned short word, unsigned char flags) {
    if (Core().header.IsOld()) {
        core->FailWithStream(HpackErrors::oldFormatID, HpackErrors::oldFormat);
    }
    core->header.fileID = id;
    core->header.fileIDWord = word;
    core->header.fileIDFlags = flags;
    core->SeekTo(fileIDAt);
    char fields[identitySize];
    EncodeIdentity(core->header, fields);
    core->Write(fields, sizeof fields);
}

void Hpack::GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags) const {
    const HpackHeader& header = Core().header;
    id = header.fileID;
    word = header.fileIDWord;
    flags = header.fileIDFlags;
}

void Hpack::GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags,
                      bool& old) const {
    GetFileID(id, word, flags);
    old = core->header.IsOld();
}

void Hpack::SetState(unsigned char state) {
    if (Core().header.IsOld()) {
        core->FailWithStream(HpackErrors::oldFormatState, HpackErrors::oldFormat);
    }
    core->header.state = state;
    core->SeekTo(stateAt);
    core->io.Put(state);
}

void Hpack::GetState(unsigned char& state) const {
    state = Core().header.state;
}

void Hpack::SetOldID(bool unicode) {
    const unsigned int magic = unicode ? OldUnicodeMagic : OldAsciiMagic;
    Core().SeekTo(0);
    core->io.Put(magic);
    const std::uint8_t state = core->header.state;
    core->header = OldHeader(magic, core->header.indexOffset);
    core->header.state = state;
}
