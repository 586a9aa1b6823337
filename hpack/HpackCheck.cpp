#include "hpack/HpackCheck.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "hpack/RawPackage.h"

using namespace HpackFormat;

namespace vantry_internal {
namespace {

struct KindText {
    HpackFault::Kind kind;
    const char* name;
    const char* text;
};

constexpr KindText kindTexts[] = {
    {HpackFault::headerCut, "header-cut", "too short for a header"},
    {HpackFault::headerMagic, "header-magic", "bad magic: not a package"},
    {HpackFault::tooLong, "too-long", "longer than a package can be"},
    {HpackFault::noIndex, "no-index", "has no index: it was created but never closed"},
    {HpackFault::indexOffset, "index-offset",
     "the header leads to an offset where no index can be"},
    {HpackFault::indexMarker, "index-marker", "there is no index where the header leads"},
    {HpackFault::indexCut, "index-cut", "the index has fewer entries than it counts"},
    {HpackFault::keyOrder, "key-order", "its entry in the index is out of order"},
    {HpackFault::keyTwice, "key-twice", "the index has it again"},
    {HpackFault::recordOffset, "record-offset", "its entry leads beyond the end"},
    {HpackFault::recordMarker, "record-marker", "there is no record where its entry leads"},
    {HpackFault::recordKey, "record-key", "the record where its entry leads has another key"},
    {HpackFault::recordCut, "record-cut", "its record reaches beyond the end"},
    {HpackFault::overlapsHeader, "overlaps-header", "overlaps the header"},
    {HpackFault::overlapsIndex, "overlaps-index", "its record overlaps the index"},
    {HpackFault::overlapsItem, "overlaps-item", "its record overlaps that of another item"},
    {HpackFault::unreadable, "unreadable", "cannot be read"},
};

constexpr bool InOrderOfKinds() {
    int kind = 0;
    for (const KindText& row : kindTexts) {
        if (row.kind != kind++) {
            return false;
        }
    }
    return kind == HpackFault::unreadable + 1;
}
static_assert(InOrderOfKinds());

class Check {
public:
    explicit Check(Generic32& stream) : package(stream) {}

    HpackCheckReport Run();

private:
    void Add(HpackFault::Kind kind, std::uint32_t offset, bool ofItem, std::string_view key,
             std::string_view other);
    void AddFault(HpackFault::Kind kind, std::uint32_t offset) { Add(kind, offset, false, {}, {}); }
    void AddItemFault(HpackFault::Kind kind, const RawPackage::Entry& entry,
                      std::string_view other = {}) {
        Add(kind, entry.offset, true, index.Key(entry), other);
    }

    // A header and an index start with two words.
    HpackFault::Kind IfReadable(std::uint32_t offset, HpackFault::Kind kind) {
        char words[2 * wordSize];
        return package.Read(offset, words, sizeof words) ? kind : HpackFault::unreadable;
    }

    bool CheckHeader();
    bool CheckIndex();
    bool NextEntryFits();
    void CheckOrder();
    void CheckRecords();
    bool CheckRecord(const RawPackage::Entry& entry, RawPackage::Record& record);
    bool ReadBody(const RawPackage::Record& record);
    void CheckOverlap(const RawPackage::Entry& entry, const RawPackage::Record& record);

    RawPackage package;
    RawPackage::Header header;
    RawPackage::Index index;
    HpackCheckReport report;
    std::size_t faultCount = 0;
    std::uint64_t keyBytes = 0;              // in report.faults
    std::vector<RawPackage::Entry> entries;  // those that count, by offset
    std::uint64_t readTo = 0;                // end of the bodies that have been read
    // The record before that reaches furthest.
    const RawPackage::Entry* furthest = nullptr;
    std::uint64_t furthestEnd = 0;
    std::vector<char> piece;
};

}  // namespace

HpackCheckReport Check::Run() {
    report.size = package.Size();
    if (package.TooLong()) {
        AddFault(HpackFault::tooLong, maxStreamSize);
    }
    if (CheckHeader() && CheckIndex()) {
        CheckOrder();
        CheckRecords();
    }
    return std::move(report);
}

// One key may overlap with a million others, and each fault would have a copy of it.
void Check::Add(HpackFault::Kind kind, std::uint32_t offset, bool ofItem, std::string_view key,
                std::string_view other) {
    constexpr std::size_t maxFaults = 65536;
    constexpr std::uint64_t leastRoom = 1 << 16;
    ++faultCount;
    const std::uint64_t room = std::max<std::uint64_t>(package.Size(), leastRoom);
    if (report.faults.size() == maxFaults || keyBytes + key.size() + other.size() > room) {
        ++report.unlisted;
        return;
    }
    keyBytes += key.size() + other.size();
    report.faults.push_back({kind, offset, ofItem, qtString(key), qtString(other)});
}

bool Check::CheckHeader() {
    header = package.ReadHeader();
    if ((header.size != 0)) {
        return true;
    }
    const bool cut = package.Size() < oldHeaderSize || header.magic == PackMagic;
    AddFault(cut ? HpackFault::headerCut : IfReadable(0, HpackFault::headerMagic), 0);
    return false;
}

bool Check::CheckIndex() {
    if (header.indexOffset == 0) {
        AddFault(HpackFault::noIndex, 0);
        return false;
    }
    index = package.ReadIndex(header.indexOffset);
    if (std::uint64_t{header.indexOffset} + indexOverhead > package.Size()) {
        AddFault(HpackFault::indexOffset, header.indexOffset);
        return false;
    }
    if (!index.marked) {
        AddFault(IfReadable(header.indexOffset, HpackFault::indexMarker), header.indexOffset);
        return false;
    }
    if (!index.complete) {
        AddFault(NextEntryFits() ? HpackFault::unreadable : HpackFault::indexCut,
                 header.indexOffset);
    }
    if (header.indexOffset < header.size) {
        AddFault(HpackFault::overlapsHeader, header.indexOffset);
    }
    return true;
}

// Whether the stream has as many bytes as the entry after those that could be read.
bool Check::NextEntryFits() {
    std::uint32_t keyLength = 0;
    package.Word(index.end, keyLength);
    return std::uint64_t{index.end} + entryOverhead + keyLength <= package.Size();
}

// Of several entries with one key, lookups use the last.
void Check::CheckOrder() {
    const auto before = [this](const RawPackage::Entry& left, const RawPackage::Entry& right) {
        const int compared = index.Key(left).compare(index.Key(right));
        return compared != 0 ? compared < 0 : left.keyAt < right.keyAt;
    };
    entries = index.entries;
    if (!std::is_sorted(entries.begin(), entries.end(), before)) {
        for (std::size_t i = 1; i < index.entries.size(); ++i) {
            if (index.Key(index.entries[i]) < index.Key(index.entries[i - 1])) {
                AddItemFault(HpackFault::keyOrder, index.entries[i]);
            }
        }
        std::stable_sort(entries.begin(), entries.end(), before);
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i + 1 < entries.size() && index.Key(entries[i]) == index.Key(entries[i + 1])) {
            AddItemFault(HpackFault::keyTwice, entries[i]);
        } else {
            entries[kept++] = entries[i];
        }
    }
    entries.resize(kept);
    report.items = static_cast<std::uint32_t>(kept);
}

void Check::CheckRecords() {
    std::stable_sort(entries.begin(), entries.end(),
                     [](const RawPackage::Entry& left, const RawPackage::Entry& right) {
                         return left.offset < right.offset;
                     });
    for (const RawPackage::Entry& entry : entries) {
        RawPackage::Record record;
        if (!CheckRecord(entry, record)) {
            continue;
        }
        const std::size_t before = faultCount;
        if (!ReadBody(record)) {
            AddItemFault(HpackFault::unreadable, entry);
        }
        CheckOverlap(entry, record);
        report.wholeItems += faultCount == before ? 1 : 0;
    }
}

bool Check::CheckRecord(const RawPackage::Entry& entry, RawPackage::Record& record) {
    switch (package.Look(entry.offset, index.Key(entry), record)) {
        case RawPackage::State::complete:
            return true;
        case RawPackage::State::beyondEnd:
            AddItemFault(HpackFault::recordOffset, entry);
            break;
        case RawPackage::State::noMarker:
            AddItemFault(HpackFault::recordMarker, entry);
            break;
        case RawPackage::State::otherKey:
            AddItemFault(HpackFault::recordKey, entry);
            break;
        case RawPackage::State::cut:
            AddItemFault(HpackFault::recordCut, entry);
            break;
        case RawPackage::State::unreadable:
            AddItemFault(HpackFault::unreadable, entry);
            break;
    }
    return false;
}

// Records come by offset, so bytes that an overlapping record shares with it are read once.
bool Check::ReadBody(const RawPackage::Record& record) {
    constexpr std::uint32_t pieceSize = 65536;
    piece.resize(pieceSize);
    std::uint64_t at = std::max(readTo, record.BodyAt());
    while (at < record.End()) {
        const auto count =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(pieceSize, record.End() - at));
        if (!package.Read(at, piece.data(), count)) {
            return false;
        }
        at += count;
    }
    readTo = std::max(readTo, at);
    return true;
}

void Check::CheckOverlap(const RawPackage::Entry& entry, const RawPackage::Record& record) {
    if (entry.offset < header.size) {
        AddItemFault(HpackFault::overlapsHeader, entry);
    }
    if (entry.offset < index.end && record.End() > index.offset) {
        AddItemFault(HpackFault::overlapsIndex, entry);
    }
    if (furthest != nullptr && entry.offset < furthestEnd) {
        AddItemFault(HpackFault::overlapsItem, entry, index.Key(*furthest));
    }
    if (record.End() > furthestEnd) {
        furthest = &entry;
        furthestEnd = record.End();
    }
}

}  // namespace vantry_internal

const char* HpackFault::Name(Kind kind) {
    return vantry_internal::kindTexts[kind].name;
}

const char* HpackFault::Text(Kind kind) {
    return vantry_internal::kindTexts[kind].text;
}

HpackCheckReport HpackCheck(Generic32& stream) {
    return vantry_internal::Check(stream).Run();
}
