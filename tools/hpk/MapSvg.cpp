#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/HumanSize.h"
#include "tools/hpk/MapPicture.h"

namespace vantry_tools {

namespace {

// Numbers of the picture, in pixels.
constexpr double left = 92;
constexpr double top = 52;
constexpr double rowWidth = 880;
constexpr double rowHeight = 22;
constexpr double rowStep = 28;
constexpr std::uint64_t mostRows = 20;
constexpr std::uint64_t leastRowBytes = 64;

/// Neighbors that are drawn as one because each would be too small to see.
struct Block {
    std::uint64_t begin;
    std::uint64_t end;
    Layout::Kind kind;
    std::string title;
};

}  // namespace

static constexpr const char* style = R"(<style>
  :root { color-scheme: light dark }
  .page { fill: #ffffff } text { fill: #1f2328; font: 13px system-ui, sans-serif }
  .title { font-size: 16px; font-weight: 600 } .at { text-anchor: end; font-size: 11px }
  rect { stroke: #ffffff; stroke-width: .6 } rect:hover { stroke: #000000; stroke-width: 2 }
  .k0 { fill: #bf3989 } .k1 { fill: #e16f24 } .k2 { fill: #80ccff } .k3 { fill: #218bff }
  .k4 { fill: #0550ae } .k5 { fill: #d0d7de }
  @media (prefers-color-scheme: dark) {
    .page { fill: #0d1117 } text { fill: #e6edf3 }
    rect { stroke: #0d1117 } rect:hover { stroke: #ffffff }
    .k0 { fill: #f778ba } .k1 { fill: #f0883e } .k2 { fill: #a5d6ff } .k3 { fill: #388bfd }
    .k4 { fill: #1f5fbf } .k5 { fill: #3d444d }
  }
</style>
)";

std::string EscapeMarkup(std::string_view text) {
    std::string out;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        // Two characters that XML does not allow.
        const std::string_view three = text.substr(at, 3);
        if (three == "\xef\xbf\xbe" || three == "\xef\xbf\xbf") {
            out += "&#xfffd;";
            at += 2;
        } else if (c == '<' || c == '&' || c == '"') {
            out += c == '<' ? "&lt;" : c == '&' ? "&amp;" : "&quot;";
        } else {
            out += c;
        }
    }
    return out;
}

static std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

static std::string Text(double x, double y, const char* kind, const std::string& text) {
    return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" class=\"" + kind + "\">" +
           EscapeMarkup(text) + "</text>\n";
}

static std::string Rectangle(double x, double y, double width, Layout::Kind kind,
                             const std::string& title) {
    return "<rect x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" width=\"" + Number(width) +
           "\" height=\"" + Number(rowHeight) + "\" class=\"k" + std::to_string(kind) +
           "\"><title>" + EscapeMarkup(title) + "</title></rect>\n";
}

static std::string TitleOf(const Layout::Region& region) {
    return (region.name.empty() ? Layout::kindNames[region.kind] : region.name) + ": " +
           std::to_string(region.Size()) + " bytes at " + std::to_string(region.begin);
}

// Header and index are always visible, and by themselves.
static bool StandsAlone(const Layout::Region& region, std::uint64_t least) {
    return region.Size() >= least || region.kind == Layout::header || region.kind == Layout::index;
}

// Collects neighbors from `at` on until they have at least `least` bytes.
static Block TakeBlock(const std::vector<Layout::Region>& regions, std::size_t& at,
                       std::uint64_t least) {
    const Layout::Region& first = regions[at];
    const Layout::Region* largest = &first;
    std::size_t count = 0;
    std::uint64_t end = 0;
    do {
        largest = regions[at].Size() > largest->Size() ? &regions[at] : largest;
        end = regions[at++].end;
        ++count;
    } while (end - first.begin < least && at < regions.size() && !StandsAlone(first, least) &&
             !StandsAlone(regions[at], least));
    const std::string title = count == 1 ? TitleOf(first)
                                         : std::to_string(count) + " regions, " +
                                               std::to_string(end - first.begin) + " bytes at " +
                                               std::to_string(first.begin) + "; the largest is " +
                                               TitleOf(*largest);
    return {first.begin, end, largest->kind, title};
}

// A block is divided at the ends of rows.
static std::string DrawBlock(const Block& block, std::uint64_t rowBytes) {
    std::string drawn;
    const double scale = rowWidth / static_cast<double>(rowBytes);
    const bool marked = block.kind == Layout::header || block.kind == Layout::index;
    const double leastWidth = marked ? 4 : 0;
    for (std::uint64_t begin = block.begin; begin < block.end;) {
        const std::uint64_t row = begin / rowBytes;
        const std::uint64_t end = std::min(block.end, (row + 1) * rowBytes);
        const double width = std::max(leastWidth, scale * static_cast<double>(end - begin));
        // A widened block still ends within its row.
        const double at =
            std::min(scale * static_cast<double>(begin - row * rowBytes), rowWidth - width);
        drawn += Rectangle(left + at, top + rowStep * static_cast<double>(row), width, block.kind,
                           block.title);
        begin = end;
    }
    return drawn;
}

static std::string DrawLegend(const Layout& layout, double y) {
    std::string drawn;
    double x = left;
    for (const auto kind : {Layout::header, Layout::smallItem, Layout::mediumItem,
                            Layout::largeItem, Layout::index, Layout::dead}) {
        const Layout::Total& total = layout.totals[kind];
        const std::string label = std::to_string(total.count) + " \u00d7 " +
                                  Layout::kindNames[kind] + ", " + HumanSize(total.bytes);
        drawn += Rectangle(x, y, rowHeight, kind, label);
        drawn += Text(x + rowHeight + 8, y + 16, "", label);
        x += rowWidth / 3;
        if (kind == Layout::mediumItem) {
            x = left;
            y += rowStep;
        }
    }
    return drawn;
}

std::string DrawMapAsSvg(const Layout& layout, const std::string& title) {
    const std::uint64_t size = layout.Size();
    const std::uint64_t rowBytes = std::max(leastRowBytes, (size + mostRows - 1) / mostRows);
    const std::uint64_t rows = (size + rowBytes - 1) / rowBytes;
    const double legendAt = top + rowStep * static_cast<double>(rows) + 12;
    const std::string width = Number(left + rowWidth + 28);
    const std::string height = Number(legendAt + 2 * rowStep + 12);
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + width + " " +
                      height + "\" width=\"" + width + "\" height=\"" + height +
                      "\" role=\"img\">\n<title>" + EscapeMarkup(title) + "</title>\n" + style +
                      "<rect class=\"page\" width=\"100%\" height=\"100%\"/>\n" +
                      Text(left, 30, "title", title);
    for (std::uint64_t row = 0; row < rows; ++row) {
        svg += Text(left - 12, top + 15 + rowStep * static_cast<double>(row), "at",
                    std::to_string(row * rowBytes));
    }
    const std::uint64_t least = std::max<std::uint64_t>(1, rowBytes / 440);
    std::string above;  // widened blocks cover their neighbors
    for (std::size_t at = 0; at < layout.regions.size();) {
        const Block block = TakeBlock(layout.regions, at, least);
        (block.kind == Layout::header || block.kind == Layout::index ? above : svg) +=
            DrawBlock(block, rowBytes);
    }
    return svg + above + DrawLegend(layout, legendAt) + "</svg>\n";
}

}  // namespace vantry_tools
