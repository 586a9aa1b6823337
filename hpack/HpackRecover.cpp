#include "hpack/HpackRecover.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <tuple>
#include <utility>

#include "hpack/Hpack.h"
#include "hpack/HpackItemWriter.h"
#include "hpack/RawPackage.h"
#include "hpack/RecoverDecide.h"
#include "hpack/RecoverLocate.h"
#include "hpack/RecoverScan.h"

// The plan, a step each:
//
// 1. Scan: find all magics in the stream, and measure the records (RecoverScan).
// 2. Locate: find the index among the blocks, and mark the records that it leads to and those of
//    packages within bodies (RecoverLocate).
// 3. Weigh: rate how likely each record is an item, from the offsets alone (RecoverDecide).
// 4. Number the keys, so that equal keys have equal numbers.
// 5. Decide: choose a version for each key (RecoverDecide).
// 6. Copy the chosen records, and report the rest.
//
// Steps 1, 2 and 4 read the stream; each reads it a fixed number of times at most.

namespace vantry_internal {
namespace {

struct KindText {
    HpackRecoverNote::Kind kind;
    const char* name;
    const char* text;
};

constexpr KindText kindTexts[] = {
    {HpackRecoverNote::lost, "lost", "dropped: no complete record of it exists"},
    {HpackRecoverNote::cut, "cut", "dropped: its record begins here and does not end"},
    {HpackRecoverNote::unreadable, "unreadable", "dropped: it cannot be read"},
    {HpackRecoverNote::older, "older", "taken in another version: the record in the index is lost"},
    {HpackRecoverNote::doubtful, "doubtful",
     "taken, but its length may be wrong, or it is part of another item"},
    {HpackRecoverNote::crowded, "crowded",
     "dropped: its length is doubtful, and too many such records overlap"},
    {HpackRecoverNote::unlisted, "unlisted", "not in the index: deleted, or never saved"},
    {HpackRecoverNote::renamed, "renamed", "taken: the index lists this record under another key"},
    {HpackRecoverNote::setAside, "set-aside",
     "taken, with .recovered- and the offset appended to the key: it may be the newer version"},
};

constexpr bool InOrderOfKinds() {
    int kind = 0;
    for (const KindText& row : kindTexts) {
        if (row.kind != kind++) {
            return false;
        }
    }
    return kind == HpackRecoverNote::setAside + 1;
}
static_assert(InOrderOfKinds());

class Recovery {
public:
    Recovery(Generic32& damaged, Hpack& target, const HpackRecoverOptions& recoverOptions)
        : package(damaged, Poll(recoverOptions.poll)), out(target), options(recoverOptions) {}

    HpackRecoverReport Run();

private:
    struct NumberedKey {
        std::size_t hash;
        std::uint32_t length;
        std::uint32_t source;  // the number of a candidate, or after those of a missing record
    };

    void NumberKeys();
    bool ReadSource(std::uint32_t source, qtString& key);
    std::uint32_t& NumberOf(std::uint32_t source);
    void Decide();
    void NoteCutRecords();
    void SetIdentity();
    void Copy();
    qtString KeyInTarget(const RecoverCandidate& candidate, const qtString& key) const;
    bool CopyItem(const RecoverCandidate& candidate);
    void Note(HpackRecoverNote::Kind kind, std::uint32_t offset, const qtString& key);
    void NoteRecord(HpackRecoverNote::Kind kind, const HpackRecord& record);

    RawPackage package;
    Hpack& out;
    const HpackRecoverOptions& options;
    const RawPackage::Header header = package.ReadHeader();
    RecoverScan scan{package};
    RecoverLocate located{package, header, scan};
    std::vector<RecoverCandidate>& candidates = scan.Records();
    std::vector<MissingRecord> missing;
    HpackRecoverReport report;
    std::uint64_t notedBytes = 0;  // of keys
};

}  // namespace

HpackRecoverReport Recovery::Run() {
    report.header = header.size != 0;
    report.index = located.Layout().state;
    WeighCandidates(candidates, located.Layout(), package.Polled());
    NumberKeys();
    Decide();
    NoteCutRecords();
    SetIdentity();
    Copy();
    std::sort(report.notes.begin(), report.notes.end(),
              [](const HpackRecoverNote& left, const HpackRecoverNote& right) {
                  return std::tie(left.offset, left.kind, left.key) <
                         std::tie(right.offset, right.kind, right.key);
              });
    return std::move(report);
}

// Keys are compared by their hashes first. The keys of records in each other's keys are together
// quadratic in the length of the stream, so none is stored.
void Recovery::NumberKeys() {
    for (const RawPackage::Entry& entry : located.Missing()) {
        missing.push_back({0, entry.offset});
    }
    std::vector<NumberedKey> keys;
    qtString key;
    const std::size_t sources = candidates.size() + missing.size();
    for (std::uint32_t source = 0; source < sources; ++source) {
        package.Polled()();
        const bool isCandidate = source < candidates.size();
        if (isCandidate && (candidates[source].confidence == Confidence::none ||
                            candidates[source].verdict == Verdict::crowded)) {
            continue;
        }
        if (!ReadSource(source, key)) {
            candidates[source].confidence = Confidence::none;
            Note(HpackRecoverNote::unreadable, candidates[source].offset, {});
            continue;
        }
        keys.push_back(
            {std::hash<std::string_view>()(key), static_cast<std::uint32_t>(key.size()), source});
    }
    std::sort(keys.begin(), keys.end(), [&](const NumberedKey& left, const NumberedKey& right) {
        package.Polled()();
        return std::tie(left.hash, left.length, left.source) <
               std::tie(right.hash, right.length, right.source);
    });
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        qtString former;
        std::swap(former, key);
        const bool readable = ReadSource(keys[i].source, key);
        number += i == 0 || !readable || key != former ? 1 : 0;
        NumberOf(keys[i].source) = number;
    }
}

bool Recovery::ReadSource(std::uint32_t source, qtString& key) {
    if (source < candidates.size()) {
        return package.ReadKey(candidates[source], key);
    }
    key = qtString(located.Index().Key(located.Missing()[source - candidates.size()]));
    return true;
}

std::uint32_t& Recovery::NumberOf(std::uint32_t source) {
    return source < candidates.size() ? candidates[source].key
                                      : missing[source - candidates.size()].key;
}

void Recovery::Decide() {
    const std::vector<RecoverRemark> remarks =
        DecideCandidates(candidates, missing, located.Layout(), options.unlisted, package.Polled());
    for (const RecoverRemark& remark : remarks) {
        if (remark.kind == HpackRecoverNote::lost) {
            const RawPackage::Entry& entry = located.Missing()[remark.number];
            Note(remark.kind, entry.offset, qtString(located.Index().Key(entry)));
        } else {
            NoteRecord(remark.kind, candidates[remark.number]);
        }
    }
    for (const RecoverCandidate& candidate : candidates) {
        report.superseded += candidate.verdict == Verdict::superseded ? 1 : 0;
    }
}

// Markers in the index and in the bodies of items are not reported.
void Recovery::NoteCutRecords() {
    const auto& [indexStart, indexEnd] = located.Layout().index;
    auto next = candidates.cbegin();
    std::uint64_t itemsEnd = located.Layout().headerSize;
    for (const RecoverScan::Mark& mark : scan.Marks()) {
        package.Polled()();
        for (; next != candidates.cend() && next->offset <= mark.offset; ++next) {
            if (next->confidence >= Confidence::sound && !next->overlaps) {
                itemsEnd = std::max(itemsEnd, next->End());
            }
        }
        const bool complete = next != candidates.cbegin() && std::prev(next)->offset == mark.offset;
        const bool inIndex = mark.offset >= indexStart && mark.offset < indexEnd;
        if (mark.magic == HpackFormat::ItemMagic && !complete && !inIndex &&
            mark.offset >= itemsEnd) {
            HpackRecord record;
            package.Measure(mark.offset, record);
            NoteRecord(HpackRecoverNote::cut, record);
        }
    }
}

void Recovery::SetIdentity() {
    if (header.size != 0 && header.IsCurrent()) {
        out.SetFileID(header.fileID, header.fileIDWord, header.fileIDFlags);
        out.SetState(header.state);
    } else if (header.size != 0) {
        out.SetOldID(header.magic == HpackFormat::OldUnicodeMagic);
    }
}

// Items that are set aside come last: their keys must differ from those of all others.
void Recovery::Copy() {
    std::vector<const RecoverCandidate*> chosen;
    for (const Verdict verdict : {Verdict::taken, Verdict::setAside}) {
        for (const RecoverCandidate& candidate : candidates) {
            if (candidate.verdict == verdict) {
                chosen.push_back(&candidate);
            }
        }
    }
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        if (options.beforeItem) {
            options.beforeItem(i, chosen.size());
        }
        if (CopyItem(*chosen[i])) {
            ++report.items;
            report.listed += chosen[i]->confidence == Confidence::listed ? 1 : 0;
        } else {
            NoteRecord(HpackRecoverNote::unreadable, *chosen[i]);
        }
    }
}

// Long bodies go in pieces, so that they need no memory and can be canceled. If one turns out to be
// unreadable, the pieces before are dead bytes in the target; short ones leave nothing.
bool Recovery::CopyItem(const RecoverCandidate& candidate) {
    constexpr std::uint32_t pieceSize = 1 << 20;
    qtString key;
    qtString body;
    if (!package.ReadKey(candidate, key)) {
        return false;
    }
    key = KeyInTarget(candidate, key);
    if (candidate.bodyLength <= pieceSize) {
        if (!package.ReadText(candidate.BodyAt(), candidate.bodyLength, body)) {
            return false;
        }
        out.AddAtOffset(key, body, 0);
        return true;
    }
    HpackItemWriter writer(out, key);
    for (std::uint32_t at = 0; at < candidate.bodyLength; at += pieceSize) {
        const std::uint32_t length = std::min(pieceSize, candidate.bodyLength - at);
        if (!package.ReadText(candidate.BodyAt() + at, length, body)) {
            return false;
        }
        writer.Write(body.data(), length);
    }
    writer.Finish();
    return true;
}

qtString Recovery::KeyInTarget(const RecoverCandidate& candidate, const qtString& key) const {
    if (candidate.verdict != Verdict::setAside) {
        return key;
    }
    qtString name = key + ".recovered-" + std::to_string(candidate.offset);
    while (out.Contains(name)) {
        name += '-';
    }
    return name;
}

// The keys of overlapping records could fill the memory.
void Recovery::NoteRecord(HpackRecoverNote::Kind kind, const HpackRecord& record) {
    constexpr std::uint64_t leastRoom = 1 << 16;
    qtString key;
    if (notedBytes + record.keyLength <= std::max<std::uint64_t>(package.Size(), leastRoom)) {
        package.ReadKey(record, key);
    }
    Note(kind, record.offset, key);
}

void Recovery::Note(HpackRecoverNote::Kind kind, std::uint32_t offset, const qtString& key) {
    constexpr std::size_t maxNotes = 65536;
    if (report.notes.size() >= maxNotes && kind != HpackRecoverNote::lost) {
        ++report.unnoted;
        return;
    }
    notedBytes += key.size();
    report.notes.push_back({kind, offset, key});
}

}  // namespace vantry_internal

const char* HpackRecoverNote::Name(Kind kind) {
    return vantry_internal::kindTexts[kind].name;
}

const char* HpackRecoverNote::Text(Kind kind) {
    return vantry_internal::kindTexts[kind].text;
}

HpackRecoverReport HpackRecover(Generic32& damaged, Hpack& target,
                                const HpackRecoverOptions& options) {
    return vantry_internal::Recovery(damaged, target, options).Run();
}
