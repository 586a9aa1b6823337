#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/common/HumanSize.h"
#include "tools/hpk/MapPicture.h"

namespace vantry_tools {

static constexpr char letters[Layout::kindCount + 1] = "HI.oO-";
// Backgrounds from the 256-color palette with contrast on light and dark terminals.
static constexpr const char* backgrounds[Layout::kindCount] = {"48;5;162", "48;5;208", "48;5;117",
                                                               "48;5;39",  "48;5;25",  "48;5;245"};

// One cell for each equal share of the bytes, of the kind that most of them have. Header and index
// always get one, however small they are.
static std::vector<Layout::Kind> Cells(const Layout& layout, std::uint64_t count) {
    const std::uint64_t size = layout.Size();
    std::vector<Layout::Kind> cells;
    auto region = layout.regions.begin();
    for (std::uint64_t cell = 0; cell < count; ++cell) {
        const std::uint64_t begin = size * cell / count;
        const std::uint64_t end = size * (cell + 1) / count;
        std::array<std::uint64_t, Layout::kindCount> weight = {};
        for (; region != layout.regions.end() && region->begin < end; ++region) {
            const bool starts = region->begin >= begin;
            const bool marked = region->kind == Layout::header || region->kind == Layout::index;
            weight[region->kind] +=
                marked && starts ? size
                                 : std::min(region->end, end) - std::max(region->begin, begin);
            if (region->end > end) {
                break;
            }
        }
        const auto* const most = std::max_element(weight.begin(), weight.end());
        cells.push_back(static_cast<Layout::Kind>(most - weight.begin()));
    }
    return cells;
}

static std::string Paint(const std::vector<Layout::Kind>& cells, const Colors& colors) {
    std::string line;
    for (auto cell = cells.begin(); cell != cells.end();) {
        const auto end = std::find_if(cell, cells.end(), [&](auto kind) { return kind != *cell; });
        const auto length = static_cast<std::size_t>(end - cell);
        line += colors.On() ? colors.Paint(backgrounds[*cell], std::string(length, ' '))
                            : std::string(length, letters[*cell]);
        cell = end;
    }
    return line;
}

static void DrawLegend(const Layout& layout, const Colors& colors) {
    for (const auto kind : {Layout::header, Layout::smallItem, Layout::mediumItem,
                            Layout::largeItem, Layout::index, Layout::dead}) {
        const Layout::Total& total = layout.totals[kind];
        const double share =
            100.0 * static_cast<double>(total.bytes) / static_cast<double>(layout.Size());
        std::printf("%s  %-14s %8llu %5s %5.1f%%\n", Paint({kind, kind}, colors).c_str(),
                    Layout::kindNames[kind], static_cast<unsigned long long>(total.count),
                    HumanSize(total.bytes).c_str(), share);
    }
}

void DrawMapAsText(const Layout& layout, const std::string& title, const Colors& colors,
                   unsigned int width) {
    constexpr unsigned int labelWidth = 12;
    constexpr std::uint64_t mostRows = 16;
    const std::uint64_t size = layout.Size();
    const std::uint64_t columns = std::max(width, labelWidth + 8) - labelWidth;
    const std::uint64_t rows = std::min(mostRows, (size + columns - 1) / columns);
    const std::vector<Layout::Kind> cells = Cells(layout, std::min(size, rows * columns));
    std::printf("%s\n\n", title.c_str());
    for (std::uint64_t at = 0; at < cells.size(); at += columns) {
        const auto begin = cells.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = begin + static_cast<std::ptrdiff_t>(
                                     std::min<std::uint64_t>(columns, cells.size() - at));
        std::printf("%10llu  %s\n", static_cast<unsigned long long>(size * at / cells.size()),
                    Paint({begin, end}, colors).c_str());
    }
    std::printf("\n");
    DrawLegend(layout, colors);
}

}  // namespace vantry_tools
