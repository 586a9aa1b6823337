#include "hpack/HpackView.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <new>

#include "hpack/Hpack.h"
#include "hpack/HpackCodec.h"
#include "hpack/KeySlots.h"
#include "hpack/SortedEntries.h"
#include "system/FileDescriptor.h"
#include "system/FileMapping.h"

using namespace HpackFormat;
using namespace vantry_internal;

namespace {

constexpr std::uint64_t maxSize = std::numeric_limits<std::uint32_t>::max();

// A FIFO is not waited for, because it cannot be mapped; a lease is, as Hpack does.
int OpenToMap(const char* path) {
    constexpr int flags = O_RDONLY | O_CLOEXEC;
    const int file = open(path, flags | O_NONBLOCK);
    return file < 0 && errno == EWOULDBLOCK ? open(path, flags) : file;
}

// The length of what can be mapped; 0 for other things than files.
std::uint64_t SizeToMap(int file) {
    struct stat status;
    if (fstat(file, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISBLK(status.st_mode))) {
        return 0;
    }
    return static_cast<std::uint64_t>(std::max<off_t>(lseek(file, 0, SEEK_END), 0));
}

std::unique_ptr<const KeySlots> SlotsOf(const SortedEntries& entries) {
    auto slots = std::make_unique<KeySlots>(entries.Count());
    // Some at a time: most slots come from memory, and wait for each other otherwise.
    constexpr std::size_t atOnce = 16;
    std::uint64_t hashes[atOnce];
    std::uint32_t offsets[atOnce];
    SortedEntries::Position position = entries.Begin();
    while (position.number != entries.Count()) {
        std::size_t count = 0;
        for (; count < atOnce && position.number != entries.Count(); ++count) {
            const HpackIndexEntry entry = entries.At(position);
            hashes[count] = slots->Hash(entry.key);
            offsets[count] = entry.offset;
            slots->Prefetch(hashes[count]);
            position = entries.Next(position);
        }
        for (std::size_t i = 0; i < count; ++i) {
            slots->Add(hashes[i], offsets[i]);
        }
    }
    return slots;
}

}  // namespace

/// The bytes of a package, and what is known of them.
struct VANTRY_LOCAL HpackView::Package {
    Package(FileMapping newMapping, std::string_view newBytes, const qtString& newName,
            bool newIsFile, std::uint64_t newLength)
        : mapping(std::move(newMapping)),
          bytes(newBytes),
          name(newName),
          isFile(newIsFile),
          length(newLength) {
        ReadHeader();
        ReadIndex();
    }
    /// @param wanted the length; none: up to the end of the file
    static std::unique_ptr<const Package> Map(const qtString& fileName, std::uint64_t offset,
                                              std::optional<std::uint64_t> wanted);
    ~Package() { delete slots.load(std::memory_order_relaxed); }
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;

    std::optional<std::string_view> Find(std::string_view key) const;
    std::string_view Body(std::string_view key, std::uint32_t offset) const;

    FileMapping mapping;
    std::string_view bytes;
    qtString name;
    bool isFile;
    std::uint64_t length;  // may exceed that of `bytes` if no package is so long
    HpackHeader header;
    SortedEntries entries;

private:
    void ReadHeader();
    void ReadIndex();
    std::optional<std::string_view> IntactBody(std::string_view key, std::uint32_t offset) const;
    const KeySlots* EarnedSlots() const;
    [[noreturn]] void FailBody(std::string_view key, std::uint32_t offset) const;
    [[noreturn]] void FailPackage(HpackErrors::Number number, const char* text) const;
    [[noreturn]] void FailKey(const char* text, std::string_view key) const;
    [[noreturn]] void FailStream(HioErrors::Number number, const char* fileText,
                                 const char* bufferText) const;
    [[noreturn]] void FailRead() const {
        FailStream(HioErrors::read, HioErrors::readFailed, HioErrors::bufferReadFailed);
    }

    bool Holds(std::uint64_t end) const { return end <= bytes.size(); }
    std::uint32_t WordAt(std::uint64_t at) const { return Word(bytes.data() + at); }

    // Built by the thread whose lookup is the one that earns it; `building` stays set then.
    mutable std::atomic<const KeySlots*> slots{nullptr};
    mutable std::atomic<std::uint32_t> lookups{0};
    mutable std::atomic<bool> building{false};
};

void HpackView::Package::ReadHeader() {
    if (!Holds(oldHeaderSize)) {
        FailRead();
    }
    header = DecodeHeaderStart(bytes.data());
    if (header.Size() == 0) {
        FailPackage(HpackErrors::format, HpackErrors::notExpectedFormat);
    }
    if (!Holds(header.Size())) {
        FailRead();
    }
    if (header.IsCurrent()) {
        DecodeIdentity(bytes.data() + fileIDAt, header);
    }
}

void HpackView::Package::ReadIndex() {
    if (header.indexOffset == 0) {
        return;
    }
    const std::uint64_t entriesAt = std::uint64_t{header.indexOffset} + indexOverhead;
    if ((isFile && header.indexOffset > maxStreamSize) || !Holds(entriesAt)) {
        FailPackage(HpackErrors::indexUnreadable, HpackErrors::cannotReadIndex);
    }
    const HpackBlockStart start = DecodeBlockStart(bytes.data() + header.indexOffset);
    if (start.magic != IndexMagic) {
        FailPackage(HpackErrors::indexUnreadable, HpackErrors::cannotReadIndex);
    }
    if (length > maxSize) {
        FailStream(HioErrors::position, HioErrors::seekEndFailed, HioErrors::bufferSeekFailed);
    }
    if (isFile && entriesAt > maxStreamSize) {
        FailStream(HioErrors::position, HioErrors::seekFailed, HioErrors::bufferSeekFailed);
    }
    if (!entries.Load(bytes.substr(static_cast<std::size_t>(entriesAt)), start.count)) {
        FailRead();
    }
}

// The body of the record at `offset`, if an intact record of that key is there.
inline std::optional<std::string_view> HpackView::Package::IntactBody(std::string_view key,
                                                                      std::uint32_t offset) const {
    HpackRecord record{offset, static_cast<std::uint32_t>(key.size()), 0};
    if (!Holds(record.BodyAt()) || (isFile && offset > maxStreamSize)) {
        return std::nullopt;
    }
    const char* const head = bytes.data() + offset;
    const auto [magic, keyLength] = DecodeBlockStart(head);
    if (magic != ItemMagic || std::string_view(head + recordKeyAt, keyLength) != key) {
        return std::nullopt;
    }
    record.bodyLength = WordAt(record.BodyLengthAt());
    if (!Holds(record.End())) {
        return std::nullopt;
    }
    return std::string_view(bytes.data() + record.BodyAt(), record.bodyLength);
}

std::optional<std::string_view> HpackView::Package::Find(std::string_view key) const {
    if (const KeySlots* const table = EarnedSlots()) {
        const std::optional<std::uint32_t> offset = table->Find(key);
        if (!offset) {
            return std::nullopt;
        }
        // Otherwise the record is damaged, or that of another key with this hash.
        if (const std::optional<std::string_view> body = IntactBody(key, *offset)) {
            return body;
        }
    }
    const SortedEntries::Position position = entries.LowerBound(key);
    if (position.number == entries.Count()) {
        return std::nullopt;
    }
    const HpackIndexEntry entry = entries.At(position);
    return entry.key == key ? std::optional(Body(key, entry.offset)) : std::nullopt;
}

// The table, once there have been so many lookups that building it takes less time than they did.
const KeySlots* HpackView::Package::EarnedSlots() const {
    if (const KeySlots* const built = slots.load(std::memory_order_acquire)) {
        return built;
    }
    constexpr std::uint32_t entriesPerLookup = 32;
    constexpr std::uint32_t minLookups = 64;
    // Threads may lose each other's counts, but do not wait for each other.
    const std::uint32_t seen = lookups.load(std::memory_order_relaxed) + 1;
    lookups.store(seen, std::memory_order_relaxed);
    if (seen < std::max(entries.Count() / entriesPerLookup, minLookups) ||
        building.exchange(true, std::memory_order_acquire)) {
        return nullptr;
    }
    try {
        auto table = SlotsOf(entries);
        slots.store(table.get(), std::memory_order_release);
        return table.release();
    } catch (const std::bad_alloc&) {
        // Lookups do without it, and try again after as many more.
        lookups.store(0, std::memory_order_relaxed);
        building.store(false, std::memory_order_release);
        return nullptr;
    }
}

std::string_view HpackView::Package::Body(std::string_view key, std::uint32_t offset) const {
    const std::optional<std::string_view> body = IntactBody(key, offset);
    if (!body) {
        FailBody(key, offset);
    }
    return *body;
}

// Reports what is wrong with the record of the entry for `key` as Hpack does, which checks it piece
// by piece.
void HpackView::Package::FailBody(std::string_view key, std::uint32_t offset) const {
    if (isFile ? offset > maxStreamSize : offset > bytes.size()) {
        FailStream(HioErrors::position, HioErrors::seekFailed, HioErrors::bufferSeekFailed);
    }
    if (!Holds(std::uint64_t{offset} + wordSize)) {
        FailRead();
    }
    if (WordAt(offset) != ItemMagic) {
        FailKey(HpackErrors::invalidItem, key);
    }
    if (!Holds(std::uint64_t{offset} + recordKeyAt)) {
        FailRead();
    }
    const HpackRecord record{offset, DecodeBlockStart(bytes.data() + offset).count, 0};
    if (!Holds(record.BodyLengthAt())) {
        FailRead();
    }
    if (std::string_view(bytes.data() + record.KeyAt(), record.keyLength) != key) {
        FailKey(HpackErrors::wrongItem, key);
    }
    FailRead();
}

void HpackView::Package::FailPackage(HpackErrors::Number number, const char* text) const {
    throw qtX<Hpack>((text + name).c_str(), number, name);
}

void HpackView::Package::FailKey(const char* text, std::string_view key) const {
    const qtString owned(key);
    throw qtX<Hpack>((text + owned).c_str(), HpackErrors::key, name, owned);
}

void HpackView::Package::FailStream(HioErrors::Number number, const char* fileText,
                                    const char* bufferText) const {
    const qtString text = isFile ? fileText + name : qtString(bufferText);
    throw qtX<HioErr>(text.c_str(), number, name);
}

HpackView::HpackView(std::unique_ptr<const Package> newPackage) : package(std::move(newPackage)) {}
HpackView::HpackView(HpackView&& other) noexcept = default;
HpackView& HpackView::operator=(HpackView&& other) noexcept = default;
HpackView::~HpackView() = default;

HpackView::HpackView(std::string_view bytes) {
    const qtString name("qtBuffer");
    if (bytes.size() > maxSize) {
        throw qtX<HioErr>((HioErrors::cannotOpen + name).c_str(), HioErrors::open, name);
    }
    package = std::make_unique<Package>(FileMapping(), bytes, name, false, bytes.size());
}

HpackView HpackView::Map(const qtString& fileName) {
    return HpackView(Package::Map(fileName, 0, std::nullopt));
}

HpackView HpackView::Map(const qtString& fileName, std::uint64_t offset, std::uint64_t length) {
    return HpackView(Package::Map(fileName, offset, length));
}

std::unique_ptr<const HpackView::Package> HpackView::Package::Map(
    const qtString& fileName, std::uint64_t offset, std::optional<std::uint64_t> wanted) {
    const FileDescriptor file(OpenToMap(fileName.c_str()));
    if (!file) {
        throw qtX<HioErr>((HioErrors::cannotOpen + fileName).c_str(), HioErrors::open, fileName);
    }
    const std::uint64_t size = SizeToMap(file.Get());
    const std::uint64_t length = wanted.value_or(size);
    if (offset > size || length > size - offset) {
        throw qtX<HioErr>((HioErrors::readFailed + fileName).c_str(), HioErrors::read, fileName);
    }
    try {
        FileMapping mapping(file.Get(), offset, static_cast<std::size_t>(std::min(length, maxSize)),
                            fileName);
        const std::string_view bytes = mapping.Bytes();
        return std::make_unique<Package>(std::move(mapping), bytes, fileName, true, length);
    } catch (const SystemError& error) {
        if (error.Number() == ENOMEM) {
            throw std::bad_alloc();
        }
        throw qtX<HioErr>((HioErrors::readFailed + fileName).c_str(), HioErrors::read, fileName);
    }
}

std::optional<std::string_view> HpackView::Find(std::string_view key) const {
    return package->Find(key);
}

std::size_t HpackView::Count() const {
    return package->entries.Count();
}

HpackView::Iterator HpackView::begin() const {
    const auto [at, number] = package->entries.Begin();
    return {package.get(), at, number};
}

HpackView::Iterator HpackView::end() const {
    const auto [at, number] = package->entries.End();
    return {package.get(), at, number};
}

HpackView::Iterator HpackView::LowerBound(std::string_view key) const {
    const auto [at, number] = package->entries.LowerBound(key);
    return {package.get(), at, number};
}

HpackView::Range HpackView::Prefix(std::string_view prefix) const {
    const auto [at, number] = package->entries.FirstNot(
        [prefix](std::string_view key) { return key.compare(0, prefix.size(), prefix) <= 0; });
    return {LowerBound(prefix), {package.get(), at, number}};
}

void HpackView::GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags,
                          bool& old) const {
    id = package->header.fileID;
    word = package->header.fileIDWord;
    flags = package->header.fileIDFlags;
    old = package->header.IsOld();
}

void HpackView::GetState(unsigned char& state) const {
    state = package->header.state;
}

std::string_view HpackView::Item::Body() const {
    return package->Body(key, offset);
}

HpackView::Item HpackView::Iterator::operator*() const {
    const HpackIndexEntry entry = package->entries.At({position, number});
    return {package, entry.key, entry.offset};
}

HpackView::Iterator& HpackView::Iterator::operator++() {
    const auto [at, next] = package->entries.Next({position, number});
    position = at;
    number = next;
    return *this;
}

HpackView::Iterator& HpackView::Iterator::operator--() {
    const auto [at, previous] = package->entries.Previous({position, number});
    position = at;
    number = previous;
    return *this;
}
