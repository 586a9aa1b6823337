#pragma once

#include <cstdint>
#include <vector>

#include "hpack/RawPackage.h"

/// All the places of a package, by offset, with the magic of a record, an index or a header: most
/// are where one begins, and some are a body's own bytes.
class PackageMarks {
public:
    struct Mark {
        std::uint32_t offset;
        std::uint32_t magic;
        std::uint32_t nextTelling;  // the number of what TellingFrom() gives here
    };
    using Iterator = std::vector<Mark>::const_iterator;

    /// Reads the whole package.
    explicit PackageMarks(RawPackage& package);

    Iterator begin() const { return marks.begin(); }
    Iterator end() const { return marks.end(); }
    /// The first mark at or behind a place.
    Iterator From(std::uint64_t offset) const;
    /// The first at or behind a place that is of a header, or of a record that ends in the package.
    Iterator TellingFrom(std::uint64_t offset) const;
    /// The mark at a place, or end().
    Iterator At(std::uint64_t offset) const;

private:
    void Find(const char* bytes, std::size_t count, std::uint32_t at);
    void FindTelling(RawPackage& package);

    std::vector<Mark> marks;
};
