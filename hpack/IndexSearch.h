#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "hpack/HpackRecover.h"
#include "hpack/PackageMarks.h"
#include "hpack/RawPackage.h"

/// Finds the index of a damaged package among all that look like one, and what the others tell:
/// former indexes about the age of records, those of packages within bodies about what is foreign.
class IndexSearch {
public:
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
        /// Numbers of entries and the records that they lead to, by offset.
        std::vector<std::pair<std::uint32_t, RawPackage::Record>> vouched;
        std::vector<std::uint32_t> renamed;  ///< offsets of records with another key
        std::uint32_t knows = 0;  ///< what begins behind this was written after the index
    };

    /// Looks where the header says that the index is, then where it most likely is. All three must
    /// outlive the object.
    IndexSearch(RawPackage& package, const RawPackage::Header& header, const PackageMarks& marks);

    HpackRecoverReport::Index State() const { return state; }
    /// The index, empty where there is none.
    const RawPackage::Index& Index() const { return index; }
    const Judgement& IndexJudgement() const { return judgement; }

    /// Whether a place is in a package that is or was a body, as far as no index leads to it.
    bool InForeign(std::uint32_t offset) const;
    /// How new the record at a place is; the higher, the newer.
    std::uint32_t AgeOf(std::uint32_t offset) const;

private:
    using Extent = std::pair<std::uint64_t, std::uint64_t>;  // begin, end

    std::uint32_t JudgeBlocks();
    void HashKeys();
    std::uint64_t FindBegin(const RawPackage::Index& block) const;
    void AddForeign(const RawPackage::Index& block);
    void JoinForeign();
    Judgement Judge(const RawPackage::Index& candidate);
    void AddLooseEntries();
    bool Take(std::uint32_t offset);

    RawPackage& package;
    const RawPackage::Header& header;
    const PackageMarks& marks;
    HpackRecoverReport::Index state = HpackRecoverReport::none;
    RawPackage::Index index;
    Judgement judgement;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> renamed;  // record, what was known before
    std::vector<std::uint32_t> anchors;  // records that any index leads to, sorted
    std::vector<Extent> foreign;         // of packages that are or were bodies, sorted, apart
    std::vector<std::pair<std::size_t, std::uint32_t>> keyHashes;  // with record offsets, sorted
};
