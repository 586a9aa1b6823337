#pragma once

#include <cstdint>
#include <vector>

#include "hpack/RawPackage.h"
#include "hpack/RecoverDecide.h"
#include "hpack/RecoverScan.h"

namespace vantry_internal {

/// Finds the index of a damaged package among the blocks that look like one, and marks the records:
/// those that the index leads to, those that were renamed after an earlier index was written, and
/// those of packages within bodies.
class RecoverLocate {
public:
    /// All three must outlive the object.
    RecoverLocate(RawPackage& package, const RawPackage::Header& header, RecoverScan& scan);

    const RecoverLayout& Layout() const { return layout; }
    const RawPackage::Index& Index() const { return index; }
    /// The entries of the index that do not lead to a record with their key.
    const std::vector<RawPackage::Entry>& Missing() const { return missing; }

private:
    /// A comparison of a block with the records of the package.
    struct Judgment {
        std::uint32_t verified = 0;  // entries that lead to a record with their key
        std::uint32_t horizon = 0;
        bool ascending = true;
    };

    void FindEmbeddedByHeader();
    void FollowRecords(std::uint64_t offset);
    void FindBodies();
    void JudgeBlocks();
    std::uint32_t FindBegin(const RawPackage::Index& block);
    bool IsHeader(std::uint32_t offset) const;
    void AddEmbedded(std::uint32_t begin, const RawPackage::Index& block);
    void JoinEmbedded();
    bool Affordable(const RawPackage::Index& block);
    RecoverCandidate* FindRecord(const RawPackage::Index& block, const RawPackage::Entry& entry);
    Judgment Judge(const RawPackage::Index& block);
    void MarkKnown(const RawPackage::Index& block, std::uint32_t age);
    HpackRecoverReport::Index ChooseIndex();
    void LinkEntries();
    void LinkLooseEntries();

    RawPackage& package;
    const RawPackage::Header& header;
    RecoverScan& scan;
    RecoverLayout layout;
    RawPackage::Index index;
    Judgment judgment;
    std::vector<RawPackage::Entry> missing;
    std::uint32_t latestBlock = 0;        // the latest that is this package's index, or was once
    std::vector<RecoverExtent> bodies;    // known from the header on, by offset
    std::vector<RecoverExtent> embedded;  // disjoint, by offset
    std::vector<RecoverExtent> found;     // not yet in `embedded`
    std::uint64_t budget = 0;             // bytes of blocks that may still be read
};

}  // namespace vantry_internal
