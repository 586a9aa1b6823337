#include "tools/hpk/Layout.h"

#include <algorithm>
#include <utility>

#include "hpack/HpackFormat.h"
#include "tools/common/KeyText.h"

namespace vantry_tools {

static Layout::Kind KindOfItem(std::uint64_t size) {
    return size <= Layout::smallSize    ? Layout::smallItem
           : size <= Layout::mediumSize ? Layout::mediumItem
                                        : Layout::largeItem;
}

Layout::Layout(PackageReader& reader) {
    Collect(reader);
    std::sort(regions.begin(), regions.end(),
              [](const Region& a, const Region& b) { return a.begin < b.begin; });
    FillGaps(reader.Size());
    for (const Region& region : regions) {
        totals[region.kind].count += 1;
        totals[region.kind].bytes += region.Size();
    }
}

void Layout::Collect(PackageReader& reader) {
    unsigned int id = 0;
    unsigned short word = 0;
    unsigned char flags = 0;
    bool old = false;
    reader.Package().GetFileID(id, word, flags, old);
    regions.push_back({0, old ? HpackFormat::oldHeaderSize : HpackFormat::headerSize, header, {}});
    if (const std::uint64_t at = reader.IndexOffset(); at != 0) {
        regions.push_back({at, at + reader.Package().GetIndexSpace(), index, {}});
    }
    for (const qtString& key : reader.Keys()) {
        try {
            const PackageReader::Place place = reader.Find(key);
            const std::uint64_t size = HpackFormat::recordOverhead + key.size() + place.size;
            regions.push_back({place.offset, place.offset + size, KindOfItem(size), QuoteKey(key)});
        } catch (const PackageFailure& failure) {
            PrintError(failure.what());
            damaged = true;
        }
    }
}

// Where damage makes regions overlap, bytes belong to the first one.
void Layout::FillGaps(std::uint64_t size) {
    std::vector<Region> filled;
    filled.reserve(regions.size());
    std::uint64_t end = 0;
    for (Region& region : regions) {
        region.end = std::min(region.end, size);
        region.begin = std::max(region.begin, end);
        if (region.begin >= region.end) {
            continue;
        }
        if (region.begin > end) {
            filled.push_back({end, region.begin, dead, {}});
        }
        end = region.end;
        filled.push_back(std::move(region));
    }
    if (end < size) {
        filled.push_back({end, size, dead, {}});
    }
    regions = std::move(filled);
}

}  // namespace vantry_tools
