#include "hpack/HpackRecover.h"

#include <algorithm>
#include <functional>
#include <map>
#include <utility>

#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "hpack/IndexSearch.h"
#include "hpack/KindText.h"
#include "hpack/PackageMarks.h"
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

    void TakeIndex();
    void Scan();
    void ScanRecord(std::uint32_t offset, std::uint64_t gapEnd);
    bool EndsWell(std::uint64_t end, std::uint64_t gapEnd) const;
    bool HoldsMark(const Record& record) const;
    bool HoldsRecord(const Record& record) const;
    void NoteCut(const Record& record);
    bool InZeros(std::uint32_t offset);
    void Offer(const Record& record, bool doubtful);
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
    const RawPackage::Header header = package.ReadHeader();
    const PackageMarks marks{package};
    const IndexSearch search{package, header, marks};
    HpackRecoverReport report;
    std::vector<Extent> taken;                // extents known for sure, sorted
    std::vector<std::uint32_t> entryOffsets;  // of the index, sorted
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
    report.header = header.whole;
    report.index = search.State();
    TakeIndex();
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

// A record that reaches into the start of another one, or into the index, has a wrong length. An
// index that is not in order may itself reach anywhere.
void Recovery::TakeIndex() {
    const RawPackage::Index& index = search.Index();
    const IndexSearch::Judgement& judgement = search.IndexJudgement();
    for (std::uint32_t number = 0; number < index.entries.size(); ++number) {
        const RawPackage::Entry& entry = index.entries[number];
        Choice& choice = choices[qtString(index.Key(entry))];
        choice.listed = true;
        choice.entry = number;  // of equal keys the last one counts
        choice.record.offset = entry.offset;
        entryOffsets.push_back(entry.offset);
    }
    std::sort(entryOffsets.begin(), entryOffsets.end());
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
    skipTo = header.size;
    chainedAt = header.size;
    auto behind = taken.begin();
    for (const PackageMarks::Mark& mark : marks) {
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
        InZeros(offset) || (offset != chainedAt &&
                            ((offset < holderEnd && packageInHolder) || search.InForeign(offset)));
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

bool Recovery::EndsWell(std::uint64_t end, std::uint64_t gapEnd) const {
    if (end == gapEnd) {
        return true;
    }
    const auto mark = marks.At(end);
    return mark != marks.end() && (mark->magic == ItemMagic || mark->magic == IndexMagic);
}

// Whether something is marked in its key: then the length of the key is wrong.
bool Recovery::HoldsMark(const Record& record) const {
    const auto mark = marks.From(std::uint64_t{record.offset} + recordKeyAt);
    return mark != marks.end() && mark->offset + std::uint64_t{wordSize} <= record.BodyAt();
}

// Whether a record begins in its body, and no package before that: then one of the two is wrong.
bool Recovery::HoldsRecord(const Record& record) const {
    const auto telling = marks.TellingFrom(record.BodyAt());
    return telling != marks.end() && telling->magic == ItemMagic && telling->offset < record.End();
}

void Recovery::NoteCut(const Record& record) {
    qtString key;
    package.ReadKey(record, key);
    Note(HpackRecoverNote::cut, record.offset, key);
}

void Recovery::Offer(const Record& record, bool doubtful) {
    qtString key;
    if (!package.ReadKey(record, key)) {
        Note(HpackRecoverNote::unreadable, record.offset, key);
        return;
    }
    const bool led = std::binary_search(entryOffsets.begin(), entryOffsets.end(), record.offset);
    Choice& choice = choices[key];
    // Of a strayed index it is not known whether it is the latest. What lies behind it may be
    // newer, and so is what it leads to by a former key.
    const bool strayed = report.index == HpackRecoverReport::strayed;
    const bool later = strayed && (led || record.offset > search.IndexJudgement().knows);
    const Rank rank = doubtful ? inDoubt : later ? newer : led ? ledTo : scanned;
    report.superseded += choice.rank == nothing ? 0 : 1;
    const std::uint32_t age = search.AgeOf(record.offset);
    if (rank > choice.rank || (rank == choice.rank && !choice.vouched && age > choice.age)) {
        choice.record = record;
        choice.age = age;
        choice.rank = rank;
        choice.vouched = false;
    }
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
        report.index == HpackRecoverReport::good || (report.index == HpackRecoverReport::strayed &&
                                                     record.offset < search.IndexJudgement().knows);
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
