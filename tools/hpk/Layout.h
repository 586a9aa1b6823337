#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

/// What each byte of a package belongs to, from the first to the last.
struct Layout {
    /// Items are classified by the size of their records.
    enum Kind : std::uint8_t { header, index, smallItem, mediumItem, largeItem, dead };
    static constexpr std::size_t kindCount = 6;
    static constexpr std::uint64_t smallSize = std::uint64_t{1} << 10;
    static constexpr std::uint64_t mediumSize = std::uint64_t{64} << 10;
    static constexpr const char* kindNames[kindCount] = {
        "header", "index", "item up to 1K", "item up to 64K", "larger item", "dead space"};

    struct Region {
        std::uint64_t begin;
        std::uint64_t end;
        Kind kind;
        std::string name;  ///< the key as it is shown; empty unless an item

        std::uint64_t Size() const { return end - begin; }
    };

    struct Total {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0;
    };

    /// Damaged items are reported on standard error and count as dead space.
    /// @throws PackageFailure
    explicit Layout(PackageReader& reader);

    std::uint64_t Size() const { return regions.empty() ? 0 : regions.back().end; }

    std::vector<Region> regions;  ///< ascending, without gaps
    std::array<Total, kindCount> totals;
    bool damaged = false;

private:
    void Collect(PackageReader& reader);
    void FillGaps(std::uint64_t size);
};

}  // namespace vantry_tools
