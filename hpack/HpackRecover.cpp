#include "hpack/HpackRecover.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "hpack/KindText.h"
#include "hpack/RawPackage.h"

using namespace HpackFormat;

namespace {

// In the order of HpackRecoverNote::Kind.
constexpr KindText kindTexts[] = {
    {"lost", "dropped: no whole record of it is there"},
    {"cut", "dropped: its record begins here and does not end"},
    {"unreadable", "dropped: its body can not be read"},
    {"older", "taken in another version: the one in the index is damaged"},
    {"doubtful", "taken, but its length may be wrong, or it is part of another item"},
    {"crowded", "dropped: its length is doubtful, and there are too many such bytes"},
    {"unlisted", "not in the index: deleted, or never saved"},
};

/// A place with a marker.
struct Mark {
    std::uint32_t offset;
    std::uint32_t magic;
    std::uint32_t nextTelling;  // the first from here on that is of a header or a whole record
};

using Record = RawPackage::Record;

/// How much speaks for a version of an item; the higher wins, of equals the later in the stream.
enum Rank { nothing, inDoubt, scanned, ledTo, newer };

struct Choice {
    Record record;  // of a listed item without any: where its entry leads
    Rank rank = nothing;
    std::uint32_t age = 0;    // of equals the higher wins
    bool listed = false;      // the index has the key
    bool vouched = false;     // and its entry leads to `record`
    std::uint32_t entry = 0;  // the number of that entry
};

class Recovery {
public:
    Recovery(Generic32& damaged, Hpack& target, const HpackRecoverOptions& options)
        : package(damaged), out(target), chosenBy(options) {}

    HpackRecoverReport Run();

private:
    using Extent = std::pair<std::uint64_t, std::uint64_t>;  // begin, end
    using Choices = std::map<qtString, Choice, std::less<>>;

    /// What stands in an index, compared with the records.
    struct Judgement {
        bool Useful() const {
            return inOrder || (!vouched.empty() && !Foreign() && (marked || complete));
        }
        /// It belongs to another package, the bytes of which are or were a body in this one.
        bool Foreign() const { return 2 * vouched.size() < entries; }

        bool marked = false;
        bool complete = false;
        bool inOrder = false;
        std::size_t entries = 0;
        std::vector<std::pair<std::uint32_t, Record>> vouched;  // entry number, record
        std::vector<std::uint32_t> renamed;  // offsets of records with another key
        std::uint32_t knows = 0;             // what begins behind this was written after the index
    };

    void FindMarks();
    void FindMarksIn(const char* bytes, std::size_t count, std::uint32_t at);
    void FindIndex();
    void JudgeBlocks();
    void HashKeys();
    std::uint64_t FindBegin(const RawPackage::Index& block) const;
    void AddForeign(const RawPackage::Index& block);
    void JoinForeign();
    Judgement Judge(const RawPackage::Index& candidate);
    void AddLooseEntries(const Judgement& judgement);
    void TakeIndex(const Judgement& judgement);
    void Scan();
    void ScanRecord(std::uint32_t offset, std::uint64_t gapEnd);
    bool EndsWell(std::uint64_t end, std::uint64_t gapEnd) const;
    bool HoldsMark(const Record& record) const;
    bool HoldsRecord(const Record& record) const;
    void NoteCut(const Record& record);
    /// The first mark at or behind a place.
    std::vector<Mark>::const_iterator MarkFrom(std::uint64_t offset) const {
        return std::lower_bound(
            marks.begin(), marks.end(), offset,
            [](const Mark& left, std::uint64_t right) { return left.offset < right; });
    }
    bool InForeign(std::uint32_t offset) const;
    bool InZeros(std::uint32_t offset);
    void Offer(const Record& record, bool doubtful);
    std::uint32_t AgeOf(std::uint32_t offset) const;
    bool ReadKey(const Record& record, qtString& key);
    bool ReadText(std::uint64_t at, std::uint32_t length, qtString& text);
    void Decide();
    bool Wanted(const qtString& key, const Choice& choice);
    void Copy();
    bool ReadBody(const Record& record, SegBuf& body);
    void SetIdentity();
    void Note(HpackRecoverNote::Kind kind, std::uint32_t offset, const qtString& key) {
        report.notes.push_back({kind, offset, key});
    }

    RawPackage package;
    Hpack& out;
    const HpackRecoverOptions& chosenBy;
    RawPackage::Header header;
    RawPackage::Index index;
    HpackRecoverReport report;
    std::vector<Mark> marks;                  // by offset
    std::vector<Extent> taken;                // extents known for sure, sorted
    std::vector<std::uint32_t> entryOffsets;  // of the index, sorted
    std::uint32_t indexKnows = 0;             // what begins behind this was written after the index
    std::vector<std::pair<std::uint32_t, std::uint32_t>> renamed;  // record, what was known before
    std::vector<std::uint32_t> anchors;  // records that any index leads to, sorted
    std::vector<Extent> foreign;         // of packages that are or were bodies, sorted, apart
    std::vector<std::pair<std::size_t, std::uint32_t>> keyHashes;  // with record offsets, sorted
    std::uint32_t likelyBlock = 0;  // the index, if the header is wrong; 0: none
    Choices choices;
    std::vector<Choices::const_iterator> chosen;
    std::uint64_t doubtfulBytes = 0;

    // Where the scan is.
    std::uint64_t skipTo = 0;
    std::uint64_t chainedAt = 0;   // what begins here is no part of a body
    std::uint64_t holderEnd = 0;   // of a record whose length may be wrong
    bool packageInHolder = false;  // its body seems to hold a package
};

}  // namespace

const char* HpackRecoverNote::Name(Kind kind) {
    return kindTexts[kind].name;
}

const char* HpackRecoverNote::Text(Kind kind) {
    return kindTexts[kind].text;
}

HpackRecoverReport Recovery::Run() {
    header = package.ReadHeader();
    report.header = header.whole;
    FindMarks();
    FindIndex();
    Scan();
    Decide();
    SetIdentity();
    Copy();
    std::stable_sort(report.notes.begin(), report.notes.end(),
                     [](const HpackRecoverNote& left, const HpackRecoverNote& right) {
                         return left.offset < right.offset;
                     });
    return std::move(report);
}

void Recovery::FindMarks() {
    constexpr std::uint32_t pieceSize = 1 << 18;
    constexpr std::uint32_t overlap = wordSize - 1;
    std::vector<char> piece(std::min(pieceSize, package.Size()));
    for (std::uint32_t at = 0; package.Size() - at > overlap;) {
        const std::uint32_t count = std::min(pieceSize, package.Size() - at);
        package.ReadOrZero(at, piece.data(), count);
        FindMarksIn(piece.data(), count, at);
        at += count - overlap;
    }
}

// All five magics differ in the last byte alone.
void Recovery::FindMarksIn(const char* bytes, std::size_t count, std::uint32_t at) {
    const char first = static_cast<char>(ItemMagic >> 24);
    const char* const end = bytes + count - (wordSize - 1);
    for (const char* place = bytes; place < end; ++place) {
        place = static_cast<const char*>(
            std::memchr(place, first, static_cast<std::size_t>(end - place)));
        if (place == nullptr) {
            return;
        }
        const std::uint32_t magic = Word(place);
        if (magic == ItemMagic || magic == IndexMagic || magic == PackMagic ||
            magic == OldUnicodeMagic || magic == OldAsciiMagic) {
            marks.push_back({at + static_cast<std::uint32_t>(place - bytes), magic, 0});
        }
    }
}

// The index is where the header says, or else where it most likely is.
void Recovery::FindIndex() {
    JudgeBlocks();
    for (const bool strayed : {false, true}) {
        const std::uint32_t offset = strayed ? likelyBlock : header.indexOffset;
        if (offset < oldHeaderSize || offset >= package.Size()) {
            continue;
        }
        index = package.ReadIndex(offset);
        Judgement judgement = Judge(index);
        if (index.marked && !judgement.inOrder) {
            AddLooseEntries(judgement);
            judgement = Judge(index);
        }
        if (judgement.Useful()) {
            report.index = !judgement.inOrder ? HpackRecoverReport::damaged
                           : strayed          ? HpackRecoverReport::strayed
                                              : HpackRecoverReport::good;
            TakeIndex(judgement);
            return;
        }
    }
    index = {};
}

// No more is read than a few times the package, however many blocks there seem to be. Of the blocks
// that may be the index the last one is, but for those that lead to much less than another one.
void Recovery::JudgeBlocks() {
    std::uint64_t budget = std::uint64_t{4} * package.Size();
    std::size_t most = 0;
    HashKeys();
    for (std::size_t i = marks.size(); i-- > 0;) {
        if (marks[i].magic != IndexMagic) {
            continue;
        }
        const RawPackage::Index block = package.ReadIndex(marks[i].offset);
        const std::uint64_t length = block.end - block.offset;
        if (length > budget) {
            break;
        }
        budget -= length;
        const Judgement judgement = Judge(block);
        if (judgement.Foreign() && block.offset != header.indexOffset) {
            AddForeign(block);
            continue;
        }
        for (const auto& [number, record] : judgement.vouched) {
            anchors.push_back(record.offset);
        }
        for (const std::uint32_t moved : judgement.renamed) {
            renamed.emplace_back(moved, judgement.knows);
        }
        if (judgement.inOrder && judgement.vouched.size() > 2 * most) {
            most = judgement.vouched.size();
            likelyBlock = block.offset;
        }
    }
    JoinForeign();
    std::sort(anchors.begin(), anchors.end());
    anchors.erase(std::unique(anchors.begin(), anchors.end()), anchors.end());
    std::sort(renamed.begin(), renamed.end());
}

void Recovery::HashKeys() {
    for (const Mark& mark : marks) {
        Record record;
        qtString key;
        if (mark.magic == ItemMagic && package.Measure(mark.offset, record) &&
            ReadKey(record, key)) {
            keyHashes.emplace_back(std::hash<std::string_view>()(key), mark.offset);
        }
    }
    std::sort(keyHashes.begin(), keyHashes.end());
}

// The block's offsets count from where its package begins: most of the records around that have
// the keys of its entries agree about that place. @return 0 when they do not lead to another one
std::uint64_t Recovery::FindBegin(const RawPackage::Index& block) const {
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
void Recovery::AddForeign(const RawPackage::Index& block) {
    const std::uint64_t begin = FindBegin(block);
    if (begin == 0) {
        return;
    }
    std::uint64_t end = block.complete ? block.end : block.offset;
    for (const RawPackage::Entry& entry : block.entries) {
        const std::uint64_t offset = begin + entry.offset;
        const auto mark = MarkFrom(offset);
        if (offset >= end && mark != marks.end() && mark->offset == offset) {
            end = offset + 1;
        }
    }
    foreign.emplace_back(begin, end);
}

void Recovery::JoinForeign() {
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

Recovery::Judgement Recovery::Judge(const RawPackage::Index& candidate) {
    Judgement judgement;
    const std::vector<RawPackage::Entry>& entries = candidate.entries;
    judgement.entries = entries.size();
    judgement.knows = candidate.offset;
    judgement.marked = candidate.marked;
    judgement.complete = candidate.complete && !entries.empty();
    judgement.inOrder = candidate.marked && candidate.complete;
    for (std::size_t i = 1; i < entries.size(); ++i) {
        judgement.inOrder &= candidate.Key(entries[i - 1]) < candidate.Key(entries[i]);
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
        Record record;
        const RawPackage::State state = package.Look(entry.offset, key, record);
        judgement.knows = std::max(judgement.knows, entry.offset);
        if (state == RawPackage::State::whole) {
            judgement.vouched.emplace_back(number, record);
            continue;
        }
        if (state == RawPackage::State::otherKey) {
            judgement.renamed.push_back(entry.offset);
        }
        const bool keyFits = state == RawPackage::State::noMarker && !key.empty() &&
                             package.HasKey(std::uint64_t{entry.offset} + recordKeyAt, key);
        judgement.inOrder &= keyFits || state == RawPackage::State::otherKey ||
                             state == RawPackage::State::cut ||
                             state == RawPackage::State::unreadable;
    }
    return judgement;
}

// A block that was being written over another one, or has been damaged, goes on somewhere behind
// the place where it can not be read: adds the entries there that lead to their own records.
void Recovery::AddLooseEntries(const Judgement& judgement) {
    std::set<qtString> known;
    for (const auto& [number, record] : judgement.vouched) {
        known.insert(qtString(index.Key(index.entries[number])));
    }
    const auto mark = MarkFrom(std::uint64_t{index.offset} + 1);
    const std::uint64_t end = mark != marks.end() ? mark->offset : package.Size();
    std::uint64_t at = std::uint64_t{index.offset} + indexOverhead;
    while (at + entryOverhead <= end) {
        RawPackage::Entry entry = {static_cast<std::uint32_t>(index.keys.size()), 0, 0};
        qtString key;
        Record record;
        const std::uint64_t room = end - at - entryOverhead;
        if (!package.Word(at, entry.keyLength) || entry.keyLength > room ||
            !package.Word(at + wordSize + entry.keyLength, entry.offset) ||
            entry.offset >= package.Size() || !ReadText(at + wordSize, entry.keyLength, key) ||
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

// A record that reaches into the start of another one, or into the index, has a wrong length. An
// index that is not in order may itself reach anywhere.
void Recovery::TakeIndex(const Judgement& judgement) {
    for (std::uint32_t number = 0; number < index.entries.size(); ++number) {
        const RawPackage::Entry& entry = index.entries[number];
        Choice& choice = choices[qtString(index.Key(entry))];
        choice.listed = true;
        choice.entry = number;  // of equal keys the last one counts
        choice.record.offset = entry.offset;
        entryOffsets.push_back(entry.offset);
    }
    std::sort(entryOffsets.begin(), entryOffsets.end());
    indexKnows = judgement.knows;
    std::uint64_t nextStart = package.Size();
    for (std::size_t i = judgement.vouched.size(); i-- > 0;) {
        const auto& [number, record] = judgement.vouched[i];
        const bool intoIndex =
            index.marked && record.offset < index.offset && record.End() > index.offset;
        const bool inIndex =
            judgement.inOrder && record.offset >= index.offset && record.offset < index.end;
        const bool apart =
            !intoIndex && !inIndex && record.offset >= header.size && record.End() <= nextStart;
        nextStart = record.offset;
        Choice& choice = choices.find(index.Key(index.entries[number]))->second;
        if (apart && choice.entry == number) {
            choice.record = record;
            choice.rank = ledTo;
            choice.vouched = true;
            taken.emplace_back(record.offset, record.End());
        }
    }
    if (report.index == HpackRecoverReport::good) {
        taken.emplace_back(index.offset, index.end);
    }
    std::sort(taken.begin(), taken.end());
}

void Recovery::Scan() {
    auto next = static_cast<std::uint32_t>(marks.size());
    for (std::size_t i = marks.size(); i-- > 0;) {
        Record record;
        if (marks[i].magic == ItemMagic ? package.Measure(marks[i].offset, record)
                                        : marks[i].magic != IndexMagic) {
            next = static_cast<std::uint32_t>(i);
        }
        marks[i].nextTelling = next;
    }
    skipTo = header.size;
    chainedAt = header.size;
    auto behind = taken.begin();
    for (const Mark& mark : marks) {
        while (behind != taken.end() && behind->second <= mark.offset) {
            chainedAt = behind->second;
            ++behind;
        }
        const std::uint64_t gapEnd = behind != taken.end() ? behind->first : package.Size();
        if (mark.offset < skipTo || gapEnd <= mark.offset) {
            continue;
        }
        if (mark.magic == ItemMagic) {
            ScanRecord(mark.offset, gapEnd);
        } else if (mark.magic != IndexMagic && mark.offset < holderEnd) {
            packageInHolder = true;
        }
    }
}

void Recovery::ScanRecord(std::uint32_t offset, std::uint64_t gapEnd) {
    const bool held =
        InZeros(offset) ||
        (offset != chainedAt && ((offset < holderEnd && packageInHolder) || InForeign(offset)));
    Record record;
    const bool whole = package.Measure(offset, record) && record.End() <= gapEnd;
    if (whole && EndsWell(record.End(), gapEnd) && !HoldsMark(record)) {
        Offer(record, held);
        skipTo = record.End();
        chainedAt = held ? chainedAt : skipTo;
        return;
    }
    if (whole) {
        Offer(record, held || HoldsMark(record) || HoldsRecord(record));
    } else {
        NoteCut(record);
    }
    if (!held) {
        holderEnd = std::min(record.End(), gapEnd);
        packageInHolder = false;
    }
}

// A marker with nothing but zeros behind it is more likely damage than an empty item.
bool Recovery::InZeros(std::uint32_t offset) {
    constexpr char zeros[recordOverhead] = {};
    return package.HasKey(std::uint64_t{offset} + wordSize, std::string_view(zeros, sizeof zeros));
}

bool Recovery::InForeign(std::uint32_t offset) const {
    const auto behind = std::upper_bound(
        foreign.begin(), foreign.end(), offset,
        [](std::uint64_t left, const Extent& right) { return left < right.first; });
    return behind != foreign.begin() && std::prev(behind)->second > offset &&
           !std::binary_search(anchors.begin(), anchors.end(), offset);
}

bool Recovery::EndsWell(std::uint64_t end, std::uint64_t gapEnd) const {
    if (end == gapEnd) {
        return true;
    }
    const auto mark = MarkFrom(end);
    return mark != marks.end() && mark->offset == end &&
           (mark->magic == ItemMagic || mark->magic == IndexMagic);
}

// Whether something is marked in its key: then the length of the key is wrong.
bool Recovery::HoldsMark(const Record& record) const {
    const auto mark = MarkFrom(std::uint64_t{record.offset} + recordKeyAt);
    return mark != marks.end() && mark->offset + std::uint64_t{wordSize} <= record.BodyAt();
}

// Whether a record begins in its body, and no package before that: then one of the two is wrong.
bool Recovery::HoldsRecord(const Record& record) const {
    const auto mark = MarkFrom(record.BodyAt());
    if (mark == marks.end() || mark->nextTelling == marks.size()) {
        return false;
    }
    const Mark& telling = marks[mark->nextTelling];
    return telling.magic == ItemMagic && telling.offset < record.End();
}

void Recovery::NoteCut(const Record& record) {
    qtString key;
    ReadKey(record, key);
    Note(HpackRecoverNote::cut, record.offset, key);
}

void Recovery::Offer(const Record& record, bool doubtful) {
    qtString key;
    if (!ReadKey(record, key)) {
        Note(HpackRecoverNote::unreadable, record.offset, key);
        return;
    }
    const bool led = std::binary_search(entryOffsets.begin(), entryOffsets.end(), record.offset);
    Choice& choice = choices[key];
    // Of a strayed index it is not known whether it is the latest. What lies behind it may be
    // newer, and so is what it leads to by a former key.
    const bool strayed = report.index == HpackRecoverReport::strayed;
    const bool later = strayed && (led || record.offset > indexKnows);
    const Rank rank = doubtful ? inDoubt : later ? newer : led ? ledTo : scanned;
    report.superseded += choice.rank == nothing ? 0 : 1;
    const std::uint32_t age = AgeOf(record.offset);
    if (rank > choice.rank || (rank == choice.rank && !choice.vouched && age > choice.age)) {
        choice.record = record;
        choice.age = age;
        choice.rank = rank;
        choice.vouched = false;
    }
}

// Records are appended, so the later one is the newer. But one that an index has led to by another
// key was renamed after that: it is newer than all that the index knew.
std::uint32_t Recovery::AgeOf(std::uint32_t offset) const {
    const auto behind =
        std::upper_bound(renamed.begin(), renamed.end(), std::make_pair(offset, maxStreamSize));
    return behind != renamed.begin() && std::prev(behind)->first == offset
               ? std::max(offset, std::prev(behind)->second)
               : offset;
}

bool Recovery::ReadKey(const Record& record, qtString& key) {
    return ReadText(std::uint64_t{record.offset} + recordKeyAt, record.keyLength, key);
}

bool Recovery::ReadText(std::uint64_t at, std::uint32_t length, qtString& text) {
    if (at + length > package.Size()) {
        return false;
    }
    text.resize(length);
    if (package.Read(at, text.data(), length)) {
        return true;
    }
    text.clear();
    return false;
}

void Recovery::Decide() {
    for (auto item = choices.cbegin(); item != choices.cend(); ++item) {
        if (Wanted(item->first, item->second)) {
            chosen.push_back(item);
        }
    }
    std::sort(chosen.begin(), chosen.end(), [](const auto& left, const auto& right) {
        return left->second.record.offset < right->second.record.offset;
    });
}

bool Recovery::Wanted(const qtString& key, const Choice& choice) {
    const Record& record = choice.record;
    if (choice.rank == nothing) {
        Note(HpackRecoverNote::lost, record.offset, key);
        return false;
    }
    if (choice.vouched) {
        ++report.listed;
        return true;
    }
    const bool indexTells =
        report.index == HpackRecoverReport::good ||
        (report.index == HpackRecoverReport::strayed && record.offset < indexKnows);
    if (!choice.listed && choice.rank != ledTo && indexTells) {
        Note(HpackRecoverNote::unlisted, record.offset, key);
        if (!chosenBy.unlisted) {
            return false;
        }
    } else if (choice.listed && choice.rank != newer) {
        Note(HpackRecoverNote::older, record.offset, key);
    }
    if (choice.rank == inDoubt) {
        // Such records may lie in one another; others never do.
        doubtfulBytes += record.End() - record.offset;
        const bool fits = doubtfulBytes <= package.Size();
        Note(fits ? HpackRecoverNote::doubtful : HpackRecoverNote::crowded, record.offset, key);
        return fits;
    }
    return true;
}

void Recovery::SetIdentity() {
    if (header.current) {
        out.SetFileID(header.fileID, header.fileIDWord, header.fileIDFlags);
        out.SetState(header.state);
    } else if (header.whole) {
        out.SetOldID(header.magic == OldUnicodeMagic);
    }
}

void Recovery::Copy() {
    SegBuf body;
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        const auto& [key, choice] = *chosen[i];
        if (chosenBy.beforeItem) {
            chosenBy.beforeItem(i, chosen.size());
        }
        if (ReadBody(choice.record, body)) {
            out.AddAtOffset(key, body, 0);
            ++report.items;
        } else {
            Note(HpackRecoverNote::unreadable, choice.record.offset, key);
            report.listed -= choice.vouched ? 1 : 0;
        }
    }
}

bool Recovery::ReadBody(const Record& record, SegBuf& body) {
    const std::uint32_t length = record.bodyLength;
    body.Grow(length);
    body.size = length;
    for (std::uint32_t at = 0, run = 0; at < length; at += run) {
        char* where = nullptr;
        body.Locate(at, length, where, run);
        if (!package.Read(record.BodyAt() + at, where, run)) {
            return false;
        }
    }
    return true;
}

HpackRecoverReport HpackRecover(Generic32& damaged, Hpack& target,
                                const HpackRecoverOptions& options) {
    return Recovery(damaged, target, options).Run();
}
