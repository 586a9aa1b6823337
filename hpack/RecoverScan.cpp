#include "hpack/RecoverScan.h"

#include <algorithm>
#include <cstring>

using namespace HpackFormat;

namespace vantry_internal {

RecoverScan::RecoverScan(RawPackage& package) {
    FindMarks(package);
    MeasureRecords(package);
}

// Pieces overlap by three bytes, or a magic across a border would be missed.
void RecoverScan::FindMarks(RawPackage& package) {
    constexpr std::uint32_t pieceSize = 1 << 18;
    constexpr std::uint32_t overlap = wordSize - 1;
    std::vector<char> piece(std::min(pieceSize, package.Size()));
    for (std::uint32_t at = 0; package.Size() - at > overlap;) {
        const std::uint32_t count = std::min(pieceSize, package.Size() - at);
        package.ReadOrZero(at, piece.data(), count);
        AddMarks(piece.data(), count, at);
        at += count - overlap;
    }
}

// All five magics differ in the last byte alone.
void RecoverScan::AddMarks(const char* bytes, std::size_t count, std::uint32_t at) {
    const char first = static_cast<char>(ItemMagic >> 24);
    const char* const end = bytes + count - (wordSize - 1);
    for (const char* found = bytes; found < end; ++found) {
        found = static_cast<const char*>(
            std::memchr(found, first, static_cast<std::size_t>(end - found)));
        if (found == nullptr) {
            return;
        }
        const std::uint32_t magic = Word(found);
        if (magic == ItemMagic || magic == IndexMagic || magic == PackMagic ||
            magic == OldUnicodeMagic || magic == OldAsciiMagic) {
            marks.push_back({at + static_cast<std::uint32_t>(found - bytes), magic});
        }
    }
}

void RecoverScan::MeasureRecords(RawPackage& package) {
    records.reserve(static_cast<std::size_t>(std::count_if(
        marks.begin(), marks.end(), [](const Mark& mark) { return mark.magic == ItemMagic; })));
    for (const Mark& mark : marks) {
        HpackRecord record;
        if (mark.magic == ItemMagic && package.Measure(mark.offset, record)) {
            static_cast<HpackRecord&>(records.emplace_back()) = record;
        }
    }
    byEnd.resize(records.size());
    for (std::uint32_t i = 0; i < records.size(); ++i) {
        byEnd[i] = i;
        RecoverCandidate& record = records[i];
        record.age = record.offset;
        record.endsAtMark = record.End() == package.Size() || IsMarked(record.End(), ItemMagic) ||
                            IsMarked(record.End(), IndexMagic);
        const auto mark = From(record.KeyAt());
        record.marksInKey =
            mark != marks.end() && mark->offset + std::uint64_t{wordSize} <= record.BodyAt();
        package.Polled()();
    }
    std::sort(byEnd.begin(), byEnd.end(), [&](std::uint32_t left, std::uint32_t right) {
        package.Polled()();
        return records[left].End() != records[right].End()
                   ? records[left].End() < records[right].End()
                   : left < right;
    });
}

std::vector<RecoverScan::Mark>::const_iterator RecoverScan::From(std::uint64_t offset) const {
    return std::lower_bound(
        marks.begin(), marks.end(), offset,
        [](const Mark& left, std::uint64_t right) { return left.offset < right; });
}

bool RecoverScan::IsMarked(std::uint64_t offset, std::uint32_t magic) const {
    const auto mark = From(offset);
    return mark != marks.end() && mark->offset == offset && mark->magic == magic;
}

RecoverCandidate* RecoverScan::RecordAt(std::uint64_t offset) {
    const auto record = std::lower_bound(
        records.begin(), records.end(), offset,
        [](const RecoverCandidate& left, std::uint64_t right) { return left.offset < right; });
    return record != records.end() && record->offset == offset ? &*record : nullptr;
}

RecoverCandidate* RecoverScan::RecordEndingAt(std::uint64_t offset) {
    const auto after = std::upper_bound(
        byEnd.begin(), byEnd.end(), offset,
        [this](std::uint64_t left, std::uint32_t right) { return left < records[right].End(); });
    if (after == byEnd.begin() || records[*std::prev(after)].End() != offset) {
        return nullptr;
    }
    return &records[*std::prev(after)];
}

}  // namespace vantry_internal
