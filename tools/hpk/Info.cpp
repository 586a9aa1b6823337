#include <cstdio>

#include "hpack/HpackFormat.h"
#include "tools/common/Failures.h"
#include "tools/common/HumanSize.h"
#include "tools/common/JsonOutput.h"
#include "tools/common/Terminal.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/Layout.h"

namespace vantry_tools {

namespace {

struct InfoOptions : PackageOptions {
    bool human = false;
    bool json = false;
};

}  // namespace

static const char* FormatName(bool old, unsigned int flags) {
    if (!old) {
        return "current";
    }
    return flags == HpackFormat::oldUnicodeFlags ? "old-unicode" : "old-ascii";
}

static Json Describe(PackageReader& reader, const Layout& layout) {
    unsigned int id = 0;
    unsigned short word = 0;
    unsigned char flags = 0;
    unsigned char state = 0;
    bool old = false;
    reader.Package().GetFileID(id, word, flags, old);
    reader.Package().GetState(state);
    const std::uint64_t dead = layout.totals[Layout::dead].bytes;
    return {{"format", FormatName(old, flags)},
            {"id", id},
            {"word", word},
            {"flags", flags},
            {"state", state},
            {"items", reader.Package().Count()},
            {"size", layout.Size()},
            {"live", layout.Size() - dead},
            {"dead", dead},
            {"index_offset", reader.IndexOffset()}};
}

static void Info(const InfoOptions& options) {
    PackageReader reader(options.package);
    const Layout layout(reader);
    const Json info = Describe(reader, layout);
    if (options.json) {
        PrintJson(info);
    } else {
        for (const auto& [name, value] : info.items()) {
            const bool isSize = name == "size" || name == "live" || name == "dead";
            const std::string text = value.is_string() ? value.get<std::string>()
                                     : isSize && options.human
                                         ? HumanSize(value.get<std::uint64_t>())
                                         : value.dump();
            std::printf("%-12s  %s\n", name.c_str(), text.c_str());
        }
    }
    if (layout.damaged) {
        throw ReportedFailure();
    }
}

void AddInfoCommands(CLI::App& app) {
    const auto [infoCommand, info] =
        AddPackageCommand(app, "info", "Show properties and dead space of a package",
                          "live: bytes of header, index and items; dead: unused bytes.\n"
                          "\n"
                          "Example:\n"
                          "  hpk info --json include.hpk",
                          &Info);
    AddHuman(infoCommand, info.human);
    infoCommand.add_flag("--json", info.json, "Show one object");
}

}  // namespace vantry_tools
