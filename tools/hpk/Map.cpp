
#include "tools/common/PrintableText.h"
#include "tools/common/System.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/MapPicture.h"

namespace vantry_tools {

namespace {

struct MapOptions : PackageOptions {
    std::string svg;
    std::string html;
    unsigned int width = 0;
    Colors colors;
};

}  // namespace

static std::string Title(const std::string& path, const Layout& layout) {
    std::uint64_t items = 0;
    for (const auto kind : {Layout::smallItem, Layout::mediumItem, Layout::largeItem}) {
        items += layout.totals[kind].count;
    }
    const std::string name = path.substr(path.rfind('/') + 1);
    return PrintableText(name) + ": " + std::to_string(items) +
           (items == 1 ? " item, " : " items, ") + std::to_string(layout.Size()) + " bytes";
}

static void WriteDrawing(const std::string& path, const std::string& drawing) {
    if (path == "-") {
        WriteAll(STDOUT_FILENO, drawing.data(), drawing.size(), "standard output");
        return;
    }
    AtomicFile file(path, AtomicFile::Existing::replace);
    WriteAll(file.Descriptor(), drawing.data(), drawing.size(), path);
    file.Commit();
}

static void Map(const MapOptions& options) {
    PackageReader reader(options.package);
    const Layout layout(reader);
    const std::string title = Title(options.package, layout);
    if (!options.svg.empty()) {
        WriteDrawing(options.svg, DrawMapAsSvg(layout, title));
    } else if (!options.html.empty()) {
        WriteDrawing(options.html, DrawMapAsHtml(layout, title));
    } else {
        const unsigned int width =
            options.width != 0 ? options.width : TerminalWidth(STDOUT_FILENO);
        DrawMapAsText(layout, title, options.colors, width);
    }
    if (layout.damaged) {
        throw ReportedFailure();
    }
}

void AddMapCommands(CLI::App& app) {
    const auto [mapCommand, map] = AddPackageCommand(
        app, "map", "Draw the layout of a package",
        "All bytes in rows: header, items by size, index and dead space; below that their\n"
        "numbers, bytes and shares.\n"
        "\n"
        "Examples:\n"
        "  hpk map include.hpk\n"
        "  hpk map include.hpk --html include.html",
        &Map);
    CLI::Option* const svg =
        mapCommand
            .add_option("--svg", map.svg, "Write a picture with item names; - is standard output")
            ->type_name("FILE");
    mapCommand
        .add_option("--html", map.html, "Write a page to zoom in and search; - is standard output")
        ->excludes(svg)
        ->type_name("FILE");
    mapCommand.add_option("--width", map.width, "Columns (default: the terminal's)")
        ->type_name("N");
    map.colors.AddTo(mapCommand);
}

}  // namespace vantry_tools
