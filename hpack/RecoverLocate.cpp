#include "hpack/RecoverLocate.h"

#include <algorithm>
#include <iterator>
#include <map>

using namespace HpackFormat;

namespace vantry_internal {

// Blocks may overlap: without a limit, reading them would be quadratic in the size of the package.
static constexpr std::uint64_t budgetPerByte = 16;

// `extents` are disjoint and sorted.
static bool IsIn(const std::vector<RecoverExtent>& extents, std::uint32_t offset) {
    const auto after = std::upper_bound(
        extents.begin(), extents.end(), offset,
        [](std::uint64_t left, const RecoverExtent& right) { return left < right.first; });
    return after != extents.begin() && std::prev(after)->second > offset;
}

RecoverLocate::RecoverLocate(RawPackage& rawPackage, const RawPackage::Header& packageHeader,
                             RecoverScan& packageScan)
    : package(rawPackage), header(packageHeader), scan(packageScan) {
    budget = budgetPerByte * package.Size();
    layout.size = package.Size();
    layout.headerSize = header.size;
    if (header.size == 0) {
        layout.headerSize = scan.IsMarked(oldHeaderSize, ItemMagic) ? oldHeaderSize : headerSize;
    }
    FindEmbeddedByHeader();
    FindBodies();
    JudgeBlocks();
    for (RecoverCandidate& record : scan.Records()) {
        record.embedded = IsIn(embedded, record.offset);
    }
    layout.state = ChooseIndex();
    if (layout.state != HpackRecoverReport::none) {
        layout.index = {index.offset, index.end};
        layout.horizon = judgment.horizon;
        LinkEntries();
    }
}

// A header that is not at the start belongs to a package in a body.
void RecoverLocate::FindEmbeddedByHeader() {
    for (const RecoverScan::Mark& mark : scan.Marks()) {
        if (mark.offset == 0 || mark.magic == ItemMagic || mark.magic == IndexMagic) {
            continue;
        }
        std::uint32_t offset = 0;
        const bool current = mark.magic == PackMagic;
        const bool leads = package.Word(std::uint64_t{mark.offset} + indexOffsetAt, offset) &&
                           offset != 0 &&
                           scan.IsMarked(std::uint64_t{mark.offset} + offset, IndexMagic);
        if (leads) {
            const RawPackage::Index block = package.ReadIndex(mark.offset + offset);
            if (!Affordable(block)) {
                break;
            }
            AddEmbedded(mark.offset, block);
        } else {
            FollowRecords(std::uint64_t{mark.offset} + (current ? headerSize : oldHeaderSize));
        }
    }
    JoinEmbedded();
}

// A package in a body ends somewhere: maybe where no record follows, but the next item may.
void RecoverLocate::FollowRecords(std::uint64_t offset) {
    RecoverCandidate* record = scan.RecordAt(offset);
    while (record != nullptr && !record->suspect) {
        record->suspect = true;
        record = scan.RecordAt(record->End());
    }
}

bool RecoverLocate::Affordable(const RawPackage::Index& block) {
    const std::uint64_t cost = block.end - block.offset + std::uint64_t{indexOverhead};
    if (cost > budget) {
        return false;
    }
    budget -= cost;
    return true;
}

// Index blocks are appended, or written over the latest one: the last block that is not another
// package's is the latest, no matter how few of its records survive.
void RecoverLocate::JudgeBlocks() {
    for (std::size_t i = scan.Marks().size(); i-- > 0;) {
        const RecoverScan::Mark& mark = scan.Marks()[i];
        if (mark.magic != IndexMagic || IsIn(embedded, mark.offset) || IsIn(bodies, mark.offset)) {
            continue;
        }
        const RawPackage::Index block = package.ReadIndex(mark.offset);
        if (!Affordable(block)) {
            return;
        }
        const Judgment verdict = Judge(block);
        const std::uint32_t begin = FindBegin(block);
        if (begin != 0 && begin != mark.offset && mark.offset != header.indexOffset &&
            (IsHeader(begin) || 2 * std::size_t{verdict.verified} <= block.entries.size())) {
            AddEmbedded(begin, block);
            continue;
        }
        const bool followsRecord =
            block.offset == layout.headerSize || scan.RecordEndingAt(block.offset) != nullptr;
        // Short indexes of other packages may lead to a record with the right key by chance.
        const bool proven =
            verdict.verified > 1 && 2 * std::size_t{verdict.verified} > block.entries.size();
        const bool own = begin == 0 || proven || (block.entries.empty() && followsRecord);
        if (own) {
            MarkKnown(block, verdict.horizon);
        }
        RecoverCandidate* const next = scan.RecordAt(block.end);
        if (own && block.complete && next != nullptr) {
            next->anchored = true;
        }
        if (own && latestBlock == 0 && block.complete && verdict.ascending) {
            latestBlock = block.offset;
        }
    }
    JoinEmbedded();
}

// Follows records and index blocks from the header on, for as long as there is no gap. What lies in
// their bodies is no index of this package.
void RecoverLocate::FindBodies() {
    std::uint64_t at = layout.headerSize;
    while (true) {
        if (const RecoverCandidate* const record = scan.RecordAt(at)) {
            bodies.emplace_back(record->BodyAt(), record->End());
            at = record->End();
            continue;
        }
        if (!scan.IsMarked(at, IndexMagic)) {
            return;
        }
        const RawPackage::Index block = package.ReadIndex(static_cast<std::uint32_t>(at));
        if (!block.complete || !Affordable(block)) {
            return;
        }
        at = block.end;
    }
}

bool RecoverLocate::IsHeader(std::uint32_t offset) const {
    return scan.IsMarked(offset, PackMagic) || scan.IsMarked(offset, OldUnicodeMagic) ||
           scan.IsMarked(offset, OldAsciiMagic);
}

// The entries of an embedded package's index count from where that package begins. The records
// before the block are most likely those of the same package, and agree about its beginning.
// @return 0 for this package, the block's own offset if nothing is known
std::uint32_t RecoverLocate::FindBegin(const RawPackage::Index& block) {
    constexpr int maxRecords = 16;
    constexpr std::uint32_t maxKeyLength = 4096;
    std::map<std::uint32_t, int> votes;
    const RecoverCandidate* record = scan.RecordEndingAt(block.offset);
    for (int i = 0; i < maxRecords && record != nullptr; ++i) {
        qtString key;
        if (record->keyLength <= maxKeyLength && package.ReadKey(*record, key)) {
            const auto entry = std::find_if(
                block.entries.begin(), block.entries.end(),
                [&](const RawPackage::Entry& listed) { return block.Key(listed) == key; });
            if (entry != block.entries.end() && entry->offset <= record->offset) {
                ++votes[record->offset - entry->offset];
            }
        }
        record = scan.RecordEndingAt(record->offset);
    }
    const auto best = std::max_element(
        votes.begin(), votes.end(),
        [](const auto& left, const auto& right) { return left.second < right.second; });
    return best != votes.end() ? best->first : block.offset;
}

// An embedded package has at least its index and the records that this leads to. A header or an
// index in a body may be made to claim anything, so most entries must prove it.
void RecoverLocate::AddEmbedded(std::uint32_t begin, const RawPackage::Index& block) {
    std::uint64_t end = block.complete ? block.end : block.offset;
    std::size_t verified = 0;
    for (const RawPackage::Entry& entry : block.entries) {
        const RecoverCandidate* const record = scan.RecordAt(std::uint64_t{begin} + entry.offset);
        if (record != nullptr && record->keyLength == entry.keyLength &&
            package.HasKey(record->KeyAt(), block.Key(entry))) {
            end = std::max(end, record->End());
            ++verified;
        }
    }
    if (2 * verified >= block.entries.size()) {
        found.emplace_back(begin, end);
        FollowRecords(end);
    }
}

void RecoverLocate::JoinEmbedded() {
    embedded.insert(embedded.end(), found.begin(), found.end());
    found.clear();
    std::sort(embedded.begin(), embedded.end());
    std::size_t kept = 0;
    for (const RecoverExtent& extent : embedded) {
        if (kept != 0 && extent.first <= embedded[kept - 1].second) {
            embedded[kept - 1].second = std::max(embedded[kept - 1].second, extent.second);
        } else {
            embedded[kept++] = extent;
        }
    }
    embedded.resize(kept);
}

RecoverCandidate* RecoverLocate::FindRecord(const RawPackage::Index& block,
                                            const RawPackage::Entry& entry) {
    RecoverCandidate* const record = scan.RecordAt(entry.offset);
    return record != nullptr && record->keyLength == entry.keyLength &&
                   package.HasKey(record->KeyAt(), block.Key(entry))
               ? record
               : nullptr;
}

RecoverLocate::Judgment RecoverLocate::Judge(const RawPackage::Index& block) {
    Judgment verdict;
    verdict.horizon = block.offset;
    const RawPackage::Entry* former = nullptr;
    for (const RawPackage::Entry& entry : block.entries) {
        package.Polled()();
        verdict.verified += FindRecord(block, entry) != nullptr ? 1 : 0;
        verdict.ascending &= former == nullptr || block.Key(*former) < block.Key(entry);
        if (entry.offset < package.Size()) {
            verdict.horizon = std::max(verdict.horizon, entry.offset);
        }
        former = &entry;
    }
    return verdict;
}

// Records are appended, so the later one is the newer. But one that an index lists under another
// key was renamed in place after that index was written: it is newer than all that the index knew.
void RecoverLocate::MarkKnown(const RawPackage::Index& block, std::uint32_t age) {
    for (const RawPackage::Entry& entry : block.entries) {
        RecoverCandidate* const record = scan.RecordAt(entry.offset);
        if (record == nullptr) {
            continue;
        }
        if (FindRecord(block, entry) != nullptr) {
            record->anchored = true;
        } else {
            record->age = std::max(record->age, age);
        }
    }
}

// An index that is complete, in order and where the header leads decides which items exist, no
// matter how many of its records are lost. Its marker may be damaged if its entries prove it.
HpackRecoverReport::Index RecoverLocate::ChooseIndex() {
    if (header.indexOffset >= oldHeaderSize && header.indexOffset < package.Size()) {
        index = package.ReadIndex(header.indexOffset);
        judgment = Judge(index);
        const bool proven =
            !index.entries.empty() && 2 * std::size_t{judgment.verified} >= index.entries.size();
        if (index.complete && judgment.ascending && (index.marked || proven)) {
            return HpackRecoverReport::good;
        }
        if (index.marked) {
            LinkLooseEntries();
        }
        const bool leads =
            std::any_of(scan.Records().begin(), scan.Records().end(),
                        [](const RecoverCandidate& record) { return record.entry != 0; });
        if (leads || (judgment.verified != 0 && (index.marked || proven))) {
            return HpackRecoverReport::damaged;
        }
    }
    if (latestBlock != 0) {
        index = package.ReadIndex(latestBlock);
        judgment = Judge(index);
        // An empty one would drop everything, and may have a damaged count.
        if (!index.entries.empty()) {
            return HpackRecoverReport::displaced;
        }
    }
    index = {};
    return HpackRecoverReport::none;
}

void RecoverLocate::LinkEntries() {
    std::uint32_t number = 1;  // 1 is that of loose entries
    for (const RawPackage::Entry& entry : index.entries) {
        package.Polled()();
        ++number;
        if (RecoverCandidate* const record = FindRecord(index, entry)) {
            record->entry = number;
            record->renamed = false;
            continue;
        }
        // What a torn index lists may be made of pieces of two entries.
        const bool plausible = layout.state != HpackRecoverReport::damaged ||
                               (entry.offset >= oldHeaderSize && entry.offset < package.Size());
        if (plausible) {
            missing.push_back(entry);
        }
        RecoverCandidate* const renamed = scan.RecordAt(entry.offset);
        if (renamed != nullptr && renamed->entry == 0) {
            renamed->entry = number;
            renamed->renamed = true;
            renamed->age = std::max(renamed->age, judgment.horizon + 1);
        }
    }
}

// A block that was being written over another one, or that is damaged, continues somewhere after
// the point where it cannot be read: links the entries there that lead to records with their keys.
void RecoverLocate::LinkLooseEntries() {
    const auto mark = scan.From(std::uint64_t{index.offset} + 1);
    const std::uint64_t end = mark != scan.Marks().end() ? mark->offset : package.Size();
    std::uint64_t at = std::uint64_t{index.offset} + indexOverhead;
    while (at + entryOverhead <= end) {
        package.Polled()();
        std::uint32_t keyLength = 0;
        std::uint32_t offset = 0;
        if (!package.Word(at, keyLength) || keyLength > end - at - entryOverhead ||
            !package.Word(at + wordSize + keyLength, offset)) {
            ++at;
            continue;
        }
        RecoverCandidate* const record = scan.RecordAt(offset);
        qtString key;
        if (record == nullptr || record->keyLength != keyLength || keyLength > budget ||
            !package.ReadText(at + wordSize, keyLength, key)) {
            ++at;
            continue;
        }
        budget -= keyLength;
        if (!package.HasKey(record->KeyAt(), key)) {
            ++at;
            continue;
        }
        record->entry = 1;
        judgment.horizon = std::max(judgment.horizon, offset);
        at += IndexEntrySize(keyLength);
    }
}

}  // namespace vantry_internal
