#pragma once

#include <cstdint>
#include <vector>

#include "hpack/RawPackage.h"
#include "hpack/RecoverDecide.h"

namespace vantry_internal {

/// Everything in a damaged package that has the magic of a record, an index or a header: most are
/// where one begins, some are bytes of a body. One pass over the stream, and per record two reads.
class RecoverScan {
public:
    struct Mark {
        std::uint32_t offset;
        std::uint32_t magic;
    };

    /// Reads the entire package.
    explicit RecoverScan(RawPackage& package);

    /// All marks, by offset.
    const std::vector<Mark>& Marks() const { return marks; }
    /// The records that end within the stream, by offset.
    std::vector<RecoverCandidate>& Records() { return records; }
    const std::vector<RecoverCandidate>& Records() const { return records; }

    /// The first mark at or after `offset`, or the end of Marks().
    std::vector<Mark>::const_iterator From(std::uint64_t offset) const;
    bool IsMarked(std::uint64_t offset, std::uint32_t magic) const;
    /// The complete record at `offset`, or nullptr.
    RecoverCandidate* RecordAt(std::uint64_t offset);
    /// The complete record that ends at `offset`, the latest of several, or nullptr.
    RecoverCandidate* RecordEndingAt(std::uint64_t offset);

private:
    void FindMarks(RawPackage& package);
    void AddMarks(const char* bytes, std::size_t count, std::uint32_t at);
    void MeasureRecords(RawPackage& package);

    std::vector<Mark> marks;
    std::vector<RecoverCandidate> records;
    std::vector<std::uint32_t> byEnd;  // numbers of records, by their end, then by offset
};

}  // namespace vantry_internal
