#include "hpack/IndexSearch.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <set>

#include "hpack/HpackFormat.h"

using namespace HpackFormat;

IndexSearch::IndexSearch(RawPackage& rawPackage, const RawPackage::Header& packageHeader,
                         const PackageMarks& packageMarks)
    : package(rawPackage), header(packageHeader), marks(packageMarks) {
    const std::uint32_t likelyBlock = JudgeBlocks();
    if (Take(header.indexOffset)) {
        state = judgement.inOrder ? HpackRecoverReport::good : HpackRecoverReport::damaged;
    } else if (Take(likelyBlock)) {
        state = judgement.inOrder ? HpackRecoverReport::strayed : HpackRecoverReport::damaged;
    }
}

// Takes what is at a place for the index. @return false when it is of no use
bool IndexSearch::Take(std::uint32_t offset) {
    if (offset >= oldHeaderSize && offset < package.Size()) {
        index = package.ReadIndex(offset);
        judgement = Judge(index);
        if (index.marked && !judgement.inOrder) {
            AddLooseEntries();
            judgement = Judge(index);
        }
        if (judgement.Useful()) {
            return true;
        }
    }
    index = {};
    judgement = {};
    return false;
}

// No more is read than a few times the package, however many blocks there seem to be. Of the blocks
// that may be the index the last one is, but for those that lead to much less than another one.
// @return where the index is, if the header is wrong; 0 for nowhere
std::uint32_t IndexSearch::JudgeBlocks() {
    std::uint64_t budget = std::uint64_t{4} * package.Size();
    std::uint32_t likelyBlock = 0;
    std::size_t most = 0;
    HashKeys();
    for (auto mark = marks.end(); mark != marks.begin();) {
        --mark;
        if (mark->magic != IndexMagic) {
            continue;
        }
        const RawPackage::Index block = package.ReadIndex(mark->offset);
        const std::uint64_t length = block.end - block.offset;
        if (length > budget) {
            break;
        }
        budget -= length;
        const Judgement verdict = Judge(block);
        if (verdict.Foreign() && block.offset != header.indexOffset) {
            AddForeign(block);
            continue;
        }
        for (const auto& [number, record] : verdict.vouched) {
            anchors.push_back(record.offset);
        }
        for (const std::uint32_t moved : verdict.renamed) {
            renamed.emplace_back(moved, verdict.knows);
        }
        if (verdict.inOrder && verdict.vouched.size() > 2 * most) {
            most = verdict.vouched.size();
            likelyBlock = block.offset;
        }
    }
    JoinForeign();
    std::sort(anchors.begin(), anchors.end());
    anchors.erase(std::unique(anchors.begin(), anchors.end()), anchors.end());
    std::sort(renamed.begin(), renamed.end());
    return likelyBlock;
}

void IndexSearch::HashKeys() {
    for (const PackageMarks::Mark& mark : marks) {
        RawPackage::Record record;
        qtString key;
        if (mark.magic == ItemMagic && package.Measure(mark.offset, record) &&
            package.ReadKey(record, key)) {
            keyHashes.emplace_back(std::hash<std::string_view>()(key), mark.offset);
        }
    }
    std::sort(keyHashes.begin(), keyHashes.end());
}

// The block's offsets count from where its package begins: most of the records around that have
// the keys of its entries agree about that place. @return 0 when they do not lead to another one
std::uint64_t IndexSearch::FindBegin(const RawPackage::Index& block) const {
    constexpr std::size_t asked = 32;
    constexpr std::ptrdiff_t answers = 8;
    std::map<std::uint64_t, std::size_t> begins;
    for (std::size_t i = 0; i < std::min(asked, block.entries.size()); ++i) {
        const RawPackage::Entry& entry = block.entries[block.entries.size() - 1 - i];
        const std::size_t hash = std::hash<std::string_view>()(block.Key(entry));
        const auto first = std::lower_bound(keyHashes.begin(), keyHashes.end(),
                                            std::make_pair(hash, std::uint32_t{0}));
        const auto near =
            std::lower_bound(first, keyHashes.end(), std::make_pair(hash, block.offset));
        auto record = near - std::min(answers, near - first);
        for (; record != keyHashes.end() && record->first == hash; ++record) {
            if (record - near >= answers) {
                break;
            }
            if (record->second >= entry.offset && record->second - entry.offset < block.offset) {
                ++begins[record->second - entry.offset];
            }
        }
    }
    const auto best = std::max_element(
        begins.begin(), begins.end(),
        [](const auto& left, const auto& right) { return left.second <= right.second; });
    return best != begins.end() ? best->first : 0;
}

// Takes note of where the package of a block lies, with all the records that it leads to.
void IndexSearch::AddForeign(const RawPackage::Index& block) {
    const std::uint64_t begin = FindBegin(block);
    if (begin == 0) {
        return;
    }
    std::uint64_t end = block.complete ? block.end : block.offset;
    for (const RawPackage::Entry& entry : block.entries) {
        const std::uint64_t offset = begin + entry.offset;
        if (offset >= end && marks.At(offset) != marks.end()) {
            end = offset + 1;
        }
    }
    foreign.emplace_back(begin, end);
}

void IndexSearch::JoinForeign() {
    std::sort(foreign.begin(), foreign.end());
    std::size_t kept = 0;
    for (const Extent& extent : foreign) {
        if (kept != 0 && extent.first <= foreign[kept - 1].second) {
            foreign[kept - 1].second = std::max(foreign[kept - 1].second, extent.second);
        } else {
            foreign[kept++] = extent;
        }
    }
    foreign.resize(kept);
}

IndexSearch::Judgement IndexSearch::Judge(const RawPackage::Index& candidate) {
    Judgement verdict;
    const std::vector<RawPackage::Entry>& entries = candidate.entries;
    verdict.entries = entries.size();
    verdict.knows = candidate.offset;
    verdict.marked = candidate.marked;
    verdict.complete = candidate.complete && !entries.empty();
    verdict.inOrder = candidate.marked && candidate.complete;
    for (std::size_t i = 1; i < entries.size(); ++i) {
        verdict.inOrder &= candidate.Key(entries[i - 1]) < candidate.Key(entries[i]);
    }
    std::vector<std::uint32_t> byOffset(entries.size());
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        byOffset[i] = i;
    }
    std::stable_sort(byOffset.begin(), byOffset.end(),
                     [&](std::uint32_t left, std::uint32_t right) {
                         return entries[left].offset < entries[right].offset;
                     });
    for (const std::uint32_t number : byOffset) {
        const RawPackage::Entry& entry = entries[number];
        const std::string_view key = candidate.Key(entry);
        RawPackage::Record record;
        const RawPackage::State found = package.Look(entry.offset, key, record);
        verdict.knows = std::max(verdict.knows, entry.offset);
        if (found == RawPackage::State::whole) {
            verdict.vouched.emplace_back(number, record);
            continue;
        }
        if (found == RawPackage::State::otherKey) {
            verdict.renamed.push_back(entry.offset);
        }
        const bool keyFits = found == RawPackage::State::noMarker && !key.empty() &&
                             package.HasKey(std::uint64_t{entry.offset} + recordKeyAt, key);
        verdict.inOrder &= keyFits || found == RawPackage::State::otherKey ||
                           found == RawPackage::State::cut ||
                           found == RawPackage::State::unreadable;
    }
    return verdict;
}

// A block that was being written over another one, or has been damaged, goes on somewhere behind
// the place where it can not be read: adds the entries there that lead to their own records.
void IndexSearch::AddLooseEntries() {
    std::set<qtString> known;
    for (const auto& [number, record] : judgement.vouched) {
        known.insert(qtString(index.Key(index.entries[number])));
    }
    const auto mark = marks.From(std::uint64_t{index.offset} + 1);
    const std::uint64_t end = mark != marks.end() ? mark->offset : package.Size();
    std::uint64_t at = std::uint64_t{index.offset} + indexOverhead;
    while (at + entryOverhead <= end) {
        RawPackage::Entry entry = {static_cast<std::uint32_t>(index.keys.size()), 0, 0};
        qtString key;
        RawPackage::Record record;
        const std::uint64_t room = end - at - entryOverhead;
        if (!package.Word(at, entry.keyLength) || entry.keyLength > room ||
            !package.Word(at + wordSize + entry.keyLength, entry.offset) ||
            entry.offset >= package.Size() ||
            !package.ReadText(at + wordSize, entry.keyLength, key) ||
            package.Look(entry.offset, key, record) != RawPackage::State::whole) {
            ++at;
            continue;
        }
        if (known.insert(key).second) {
            index.keys += key;
            index.entries.push_back(entry);
        }
        at += entryOverhead + entry.keyLength;
    }
}

bool IndexSearch::InForeign(std::uint32_t offset) const {
    const auto behind = std::upper_bound(
        foreign.begin(), foreign.end(), offset,
        [](std::uint64_t left, const Extent& right) { return left < right.first; });
    return behind != foreign.begin() && std::prev(behind)->second > offset &&
           !std::binary_search(anchors.begin(), anchors.end(), offset);
}

// Records are appended, so the later one is the newer. But one that an index has led to by another
// key was renamed after that: it is newer than all that the index knew.
std::uint32_t IndexSearch::AgeOf(std::uint32_t offset) const {
    const auto behind =
        std::upper_bound(renamed.begin(), renamed.end(), std::make_pair(offset, maxStreamSize));
    return behind != renamed.begin() && std::prev(behind)->first == offset
               ? std::max(offset, std::prev(behind)->second)
               : offset;
}
