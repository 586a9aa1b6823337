#include "hpack/RecoverDecide.h"

#include <algorithm>
#include <tuple>

namespace vantry_internal {
namespace {

using Candidates = std::vector<RecoverCandidate>;
using Numbers = std::vector<std::uint32_t>;

/// One pass over the candidates by offset, which follows the records from each to its neighbor.
class Weighing {
public:
    Weighing(Candidates& theCandidates, const RecoverLayout& theLayout, Poll& thePoll)
        : candidates(theCandidates), layout(theLayout), poll(thePoll) {}

    void WeighListed();
    void WeighOthers();
    void LimitOverlaps();

private:
    Confidence Weigh(std::size_t number, std::uint64_t gapEnd);
    std::uint64_t NextAnchor(std::size_t number);
    bool HoldsRecord(std::size_t number) const;

    Candidates& candidates;
    const RecoverLayout& layout;
    Poll& poll;
    std::vector<RecoverExtent> certain;  // the index and the listed records, disjoint, by offset
    std::uint64_t boundary = 0;          // a record that starts here is no part of a body
    std::uint64_t soundEnd = 0;          // of the latest record that is likely or sound
    std::size_t anchor = 0;              // the number of the next anchored candidate
};

/// The candidates of one key.
class KeyDecision {
public:
    KeyDecision(Candidates& theCandidates, const RecoverLayout& theLayout, bool theUnlisted,
                std::vector<RecoverRemark>& theRemarks)
        : candidates(theCandidates),
          layout(theLayout),
          unlisted(theUnlisted),
          remarks(theRemarks) {}

    void Decide(const std::uint32_t* first, const std::uint32_t* last,
                const std::uint32_t* missing);

private:
    bool Older(std::uint32_t left, std::uint32_t right) const;
    bool AfterIndex(const RecoverCandidate& candidate) const;
    bool IndexDecides(const RecoverCandidate& candidate) const;
    std::uint32_t ChooseWinner(const std::uint32_t* first, const std::uint32_t* last) const;
    void DecideWinner(std::uint32_t number, bool keyIsListed);
    void DecideOther(std::uint32_t number, const RecoverCandidate& winner);
    bool Supersedes(const RecoverCandidate& winner, const RecoverCandidate& other) const;
    void Remark(HpackRecoverNote::Kind kind, std::uint32_t number) {
        remarks.push_back({kind, number});
    }

    Candidates& candidates;
    const RecoverLayout& layout;
    const bool unlisted;
    std::vector<RecoverRemark>& remarks;
};

}  // namespace

// A listed record is an item: a lookup returns it. But one that reaches into the next listed record
// or into the index has a wrong length, so that its extent says nothing about what lies in it.
void Weighing::WeighListed() {
    const bool indexIsCertain =
        layout.state == HpackRecoverReport::good || layout.state == HpackRecoverReport::displaced;
    std::uint64_t nextStart = layout.size;
    for (std::size_t i = candidates.size(); i-- > 0;) {
        poll();
        RecoverCandidate& candidate = candidates[i];
        if (candidate.entry == 0) {
            continue;
        }
        if (candidate.renamed) {
            nextStart = candidate.offset;
            continue;
        }
        const auto& [indexStart, indexEnd] = layout.index;
        const bool inIndex =
            indexIsCertain && candidate.offset < indexEnd && candidate.End() > indexStart;
        candidate.confidence = Confidence::listed;
        candidate.overlaps =
            inIndex || candidate.End() > nextStart || candidate.offset < layout.headerSize;
        nextStart = candidate.offset;
        if (!candidate.overlaps) {
            certain.emplace_back(candidate.offset, candidate.End());
        }
    }
    if (indexIsCertain) {
        certain.push_back(layout.index);
    }
    std::sort(certain.begin(), certain.end());
}

void Weighing::WeighOthers() {
    boundary = layout.headerSize;
    auto next = certain.begin();
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        poll();
        RecoverCandidate& candidate = candidates[i];
        for (; next != certain.end() && next->second <= candidate.offset; ++next) {
            boundary = next->second;
        }
        if (candidate.confidence == Confidence::listed || candidate.offset < layout.headerSize) {
            continue;
        }
        // A listed record with a damaged length may contain one that the index does not know.
        if (next != certain.end() && next->first <= candidate.offset) {
            const bool unknown = layout.state == HpackRecoverReport::damaged ||
                                 (layout.state == HpackRecoverReport::displaced &&
                                  candidate.offset > layout.horizon);
            candidate.confidence =
                unknown && !candidate.embedded ? Confidence::doubtful : Confidence::none;
            continue;
        }
        const std::uint64_t gapEnd = next != certain.end() ? next->first : layout.size;
        candidate.confidence = Weigh(i, std::min(gapEnd, NextAnchor(i)));
    }
}

// A record was once where an index leads: no other reaches into it.
std::uint64_t Weighing::NextAnchor(std::size_t number) {
    anchor = std::max(anchor, number + 1);
    while (anchor < candidates.size() && !candidates[anchor].anchored &&
           !candidates[anchor].renamed) {
        ++anchor;
    }
    return anchor < candidates.size() ? candidates[anchor].offset : layout.size;
}

// The rules, from the strongest evidence to the weakest.
Confidence Weighing::Weigh(std::size_t number, std::uint64_t gapEnd) {
    RecoverCandidate& candidate = candidates[number];
    // In a likely record: its body. A record with a damaged length may end at a marker by chance
    // and swallow its neighbors, so only the bytes of packages are certain not to be items.
    if (candidate.offset < soundEnd) {
        return candidate.embedded ? Confidence::none : Confidence::doubtful;
    }
    candidate.atStart = candidate.offset == boundary || candidate.anchored || candidate.renamed;
    if ((candidate.embedded || candidate.suspect) && !candidate.atStart) {
        return Confidence::embedded;
    }
    candidate.overlaps = candidate.End() > gapEnd;
    const bool endsWell =
        candidate.End() == gapEnd || (candidate.endsAtMark && !candidate.overlaps);
    // A record that was shortened in place may end where one of its former body starts.
    const bool unambiguous =
        candidate.anchored || candidate.renamed || !(candidate.embedded || candidate.suspect);
    const Confidence confidence =
        candidate.atStart && unambiguous ? Confidence::sound : Confidence::likely;
    if (endsWell && (candidate.atStart || !candidate.marksInKey)) {
        soundEnd = candidate.End();
        boundary = confidence == Confidence::sound ? soundEnd : boundary;
        return confidence;
    }
    // A record that was shortened in place ends anywhere. It is an item unless it contains a
    // record: then one of the two lengths is wrong.
    if (candidate.overlaps || candidate.marksInKey || HoldsRecord(number)) {
        return Confidence::doubtful;
    }
    soundEnd = candidate.End();
    return confidence;
}

bool Weighing::HoldsRecord(std::size_t number) const {
    return number + 1 < candidates.size() && !candidates[number + 1].embedded &&
           candidates[number + 1].offset < candidates[number].End();
}

// Likely and sound records are disjoint, so together they are no longer than the stream. Others may
// overlap without limit: a megabyte of records that reach to its end would become gigabytes. Of
// those that lie in no other record and of those that do, the shortest are kept: neither kind, made
// up in a body, then drives out a true record of the other kind.
void Weighing::LimitOverlaps() {
    constexpr std::uint64_t copies = 2;
    constexpr std::uint64_t leastRoom = 1 << 16;
    Numbers outer;
    Numbers inner;
    std::uint64_t furthestEnd = 0;
    for (std::uint32_t i = 0; i < candidates.size(); ++i) {
        const RecoverCandidate& candidate = candidates[i];
        const bool listed = candidate.confidence == Confidence::listed;
        if (candidate.confidence == Confidence::none ||
            !(listed ? candidate.overlaps : candidate.confidence < Confidence::likely)) {
            continue;
        }
        const bool isOuter = listed || candidate.atStart || candidate.End() > furthestEnd;
        furthestEnd = std::max(furthestEnd, candidate.End());
        (isOuter ? outer : inner).push_back(i);
    }
    for (Numbers* const numbers : {&outer, &inner}) {
        std::sort(numbers->begin(), numbers->end(), [this](std::uint32_t a, std::uint32_t b) {
            poll();
            const RecoverCandidate& left = candidates[a];
            const RecoverCandidate& right = candidates[b];
            const auto rank = [](const RecoverCandidate& candidate) {
                return candidate.confidence == Confidence::listed ? 0 : candidate.atStart ? 1 : 2;
            };
            return std::make_tuple(rank(left), left.Size(), a) <
                   std::make_tuple(rank(right), right.Size(), b);
        });
        std::uint64_t room = std::max(copies * layout.size, leastRoom);
        for (const std::uint32_t number : *numbers) {
            RecoverCandidate& candidate = candidates[number];
            if (candidate.Size() > room) {
                candidate.verdict = Verdict::crowded;
            } else {
                room -= candidate.Size();
            }
        }
    }
}

void WeighCandidates(Candidates& candidates, const RecoverLayout& layout, Poll& poll) {
    Weighing weighing(candidates, layout, poll);
    weighing.WeighListed();
    weighing.WeighOthers();
    weighing.LimitOverlaps();
}

static bool IsItem(const RecoverCandidate& candidate) {
    return candidate.confidence == Confidence::likely || candidate.confidence == Confidence::sound;
}

// Where entries have equal keys, lookups use the last one.
bool KeyDecision::Older(std::uint32_t left, std::uint32_t right) const {
    const RecoverCandidate& a = candidates[left];
    const RecoverCandidate& b = candidates[right];
    if (a.renamed != b.renamed && std::max(a.confidence, b.confidence) != Confidence::listed) {
        return b.renamed;
    }
    const bool bothItems = IsItem(a) && IsItem(b);
    if (!bothItems && a.confidence != b.confidence) {
        return a.confidence < b.confidence;
    }
    if (a.confidence == Confidence::listed && a.entry != b.entry) {
        return a.entry < b.entry;
    }
    return a.age != b.age ? a.age < b.age : a.offset < b.offset;
}

// Of an index that is not where the header leads it is unknown whether it is the latest.
bool KeyDecision::AfterIndex(const RecoverCandidate& candidate) const {
    return layout.state != HpackRecoverReport::good && layout.state != HpackRecoverReport::none &&
           IsItem(candidate) && candidate.age > layout.horizon;
}

bool KeyDecision::IndexDecides(const RecoverCandidate& candidate) const {
    return layout.state == HpackRecoverReport::good ||
           (layout.state == HpackRecoverReport::displaced && candidate.age <= layout.horizon);
}

std::uint32_t KeyDecision::ChooseWinner(const std::uint32_t* first,
                                        const std::uint32_t* last) const {
    const auto older = [this](std::uint32_t left, std::uint32_t right) {
        const bool leftAfter = AfterIndex(candidates[left]);
        const bool rightAfter = AfterIndex(candidates[right]);
        return leftAfter != rightAfter ? rightAfter : Older(left, right);
    };
    return *std::max_element(first, last, older);
}

void KeyDecision::Decide(const std::uint32_t* first, const std::uint32_t* last,
                         const std::uint32_t* missing) {
    if (first == last) {
        if (missing != nullptr) {
            Remark(HpackRecoverNote::lost, *missing);
        }
        return;
    }
    const std::uint32_t winner = ChooseWinner(first, last);
    DecideWinner(winner, missing != nullptr);
    for (const std::uint32_t* other = first; other != last; ++other) {
        if (*other != winner) {
            DecideOther(*other, candidates[winner]);
        }
    }
}

void KeyDecision::DecideWinner(std::uint32_t number, bool keyIsListed) {
    RecoverCandidate& winner = candidates[number];
    winner.verdict = Verdict::taken;
    if (winner.confidence == Confidence::listed) {
        if (winner.overlaps) {
            Remark(HpackRecoverNote::doubtful, number);
        }
        return;
    }
    if (winner.renamed) {
        Remark(HpackRecoverNote::renamed, number);
    } else if (keyIsListed && !AfterIndex(winner)) {
        Remark(HpackRecoverNote::older, number);
    } else if (IndexDecides(winner)) {
        Remark(HpackRecoverNote::unlisted, number);
        if (!unlisted) {
            winner.verdict = Verdict::unlisted;
            return;
        }
    }
    if (winner.confidence < Confidence::likely) {
        Remark(HpackRecoverNote::doubtful, number);
    }
}

// A version is superseded if the winner is certain to be newer. Otherwise both are kept.
void KeyDecision::DecideOther(std::uint32_t number, const RecoverCandidate& winner) {
    RecoverCandidate& other = candidates[number];
    const bool keyUnlisted = winner.verdict == Verdict::unlisted || winner.renamed;
    if (keyUnlisted && !unlisted && !other.renamed && IndexDecides(other)) {
        other.verdict = Verdict::unlisted;
        return;
    }
    other.verdict = Supersedes(winner, other) ? Verdict::superseded : Verdict::setAside;
    if (other.verdict == Verdict::setAside) {
        Remark(HpackRecoverNote::setAside, number);
    }
}

bool KeyDecision::Supersedes(const RecoverCandidate& winner, const RecoverCandidate& other) const {
    if (winner.confidence == Confidence::listed) {
        // The index knows no version of the item that another one of its entries led to.
        const bool decides =
            layout.state == HpackRecoverReport::good || other.age < winner.age ||
            (layout.state == HpackRecoverReport::displaced && other.age <= layout.horizon);
        return decides && !other.renamed;
    }
    if (other.confidence == Confidence::listed) {
        return winner.confidence == Confidence::sound && winner.endsAtMark && !winner.renamed;
    }
    // A record that ends at no marker was shortened in place, maybe by a rename, and then is newer
    // than its offset; or its length is damaged, and maybe its key.
    const bool untouched = winner.endsAtMark && (!IsItem(other) || other.endsAtMark);
    return winner.confidence == Confidence::sound && other.age < winner.age && untouched &&
           !other.renamed;
}

// The numbers of those that `wanted` accepts, by key, then in their order.
template <class Items, class Wanted>
static Numbers NumbersByKey(const Items& items, Poll& poll, const Wanted& wanted) {
    Numbers numbers;
    for (std::uint32_t i = 0; i < items.size(); ++i) {
        if (wanted(items[i])) {
            numbers.push_back(i);
        }
    }
    std::sort(numbers.begin(), numbers.end(), [&](std::uint32_t left, std::uint32_t right) {
        poll();
        return items[left].key != items[right].key ? items[left].key < items[right].key
                                                   : left < right;
    });
    return numbers;
}

std::vector<RecoverRemark> DecideCandidates(Candidates& candidates,
                                            const std::vector<MissingRecord>& missing,
                                            const RecoverLayout& layout, bool unlisted,
                                            Poll& poll) {
    std::vector<RecoverRemark> remarks;
    for (std::uint32_t i = 0; i < candidates.size(); ++i) {
        if (candidates[i].verdict == Verdict::crowded) {
            remarks.push_back({HpackRecoverNote::crowded, i});
        }
    }
    const Numbers versions = NumbersByKey(candidates, poll, [](const RecoverCandidate& candidate) {
        return candidate.confidence != Confidence::none && candidate.verdict != Verdict::crowded;
    });
    const Numbers lost = NumbersByKey(missing, poll, [](const MissingRecord&) { return true; });
    KeyDecision decision(candidates, layout, unlisted, remarks);
    const std::uint32_t* version = versions.data();
    const std::uint32_t* const versionsEnd = version + versions.size();
    auto nextLost = lost.begin();
    while (version != versionsEnd || nextLost != lost.end()) {
        poll();
        const bool lostFirst =
            version == versionsEnd ||
            (nextLost != lost.end() && missing[*nextLost].key < candidates[*version].key);
        const std::uint32_t key = lostFirst ? missing[*nextLost].key : candidates[*version].key;
        const std::uint32_t* const last = std::find_if(
            version, versionsEnd, [&](std::uint32_t i) { return candidates[i].key != key; });
        const std::uint32_t* entry = nullptr;
        for (; nextLost != lost.end() && missing[*nextLost].key == key; ++nextLost) {
            entry = &*nextLost;
        }
        decision.Decide(version, last, entry);
        version = last;
    }
    return remarks;
}

}  // namespace vantry_internal
