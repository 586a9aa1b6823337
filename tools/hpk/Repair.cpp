#include <cinttypes>
#include <cstdio>

#include "hpack/Hfile32.h"
#include "hpack/HpackCheck.h"
#include "hpack/HpackCompact.h"
#include "hpack/HpackRecover.h"
#include "tools/common/JsonOutput.h"
#include "tools/common/KeyText.h"
#include "tools/common/LongWork.h"
#include "tools/common/PrintableText.h"
#include "tools/common/System.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/DigestList.h"
#include "tools/hpk/NewPackage.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct CheckOptions : PackageOptions {
    bool json = false;
};

struct RecoverOptions : PackageOptions {
    std::string output;
    bool all = false;
    bool force = false;
};

struct CompactOptions : PackageOptions {
    std::string output;
    std::string order = "key";
    bool force = false;
};

}  // namespace

// Any bytes, whether they open as a package or not.
static void OpenAnything(Hfile32& file, const std::string& path) {
    OpenRegular(path, O_RDONLY);
    OnPackage(path, [&] { file.Open(path, 'r'); });
}

static Json Describe(const HpackFault& fault) {
    Json json = {{"kind", HpackFault::Name(fault.kind)}, {"offset", fault.offset}};
    if (fault.ofItem) {
        AddKey(json, "key", fault.key);
    }
    if (fault.kind == HpackFault::overlapsItem) {
        AddKey(json, "other", fault.other);
    }
    json["text"] = HpackFault::Text(fault.kind);
    return json;
}

static Json Describe(const DigestFault& fault) {
    Json json = {{"kind", DigestFault::Name(fault.kind)}};
    AddKey(json, "key", fault.key);
    json["text"] = DigestFault::Text(fault.kind);
    return json;
}

static void PrintAsJson(const HpackCheckReport& report, const std::vector<DigestFault>& digests) {
    JsonArrayPrinter faults({{"good", report.Good() && digests.empty()},
                             {"size", report.size},
                             {"items", report.items},
                             {"whole_items", report.wholeItems}},
                            "faults");
    for (const HpackFault& fault : report.faults) {
        faults.Print(Describe(fault));
    }
    for (const DigestFault& fault : digests) {
        faults.Print(Describe(fault));
    }
    faults.End();
}

static void PrintFault(const std::string& package, const HpackFault& fault) {
    std::printf("%s: ", PrintableText(package).c_str());
    if (fault.ofItem) {
        std::printf("%s, at %" PRIu32 ": ", QuoteKey(fault.key).c_str(), fault.offset);
    }
    std::printf("%s", HpackFault::Text(fault.kind));
    if (fault.kind == HpackFault::overlapsItem) {
        std::printf(": %s", QuoteKey(fault.other).c_str());
    }
    std::putchar('\n');
}

// Of a package that is otherwise in order: what is damaged has been reported, and may not open.
static std::vector<DigestFault> CheckDigests(const CheckOptions& options) {
    PackageReader package(options.package);
    std::vector<DigestFault> faults;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        StartPhase(progress, "digesting", package.Keys().size());
        faults = CompareWithStoredLists(package, [&progress] {
            StopIfInterrupted(progress);
            Advance(progress, 1);
        });
    });
    return faults;
}

static void Check(const CheckOptions& options) {
    Hfile32 file;
    OpenAnything(file, options.package);
    const HpackCheckReport report = OnPackage(options.package, [&] { return HpackCheck(file); });
    const std::vector<DigestFault> digests =
        report.Good() ? CheckDigests(options) : std::vector<DigestFault>();
    if (options.json) {
        PrintAsJson(report, digests);
    } else {
        for (const HpackFault& fault : report.faults) {
            PrintFault(options.package, fault);
        }
        if (report.unlisted != 0) {
            std::printf("%s: %" PRIu32 " more faults\n", PrintableText(options.package).c_str(),
                        report.unlisted);
        }
        PrintFaults(options.package, digests);
    }
    if (!report.Good() || !digests.empty()) {
        throw ReportedFailure();
    }
}

static const char* IndexText(HpackRecoverReport::Index index) {
    switch (index) {
        case HpackRecoverReport::good:
            return "the index is in order";
        case HpackRecoverReport::displaced:
            return "the header has lost the index, which was found elsewhere";
        case HpackRecoverReport::damaged:
            return "the index is damaged: deleted items may reappear";
        default:
            return "there is no index: deleted items may reappear";
    }
}

static void PrintReport(const RecoverOptions& options, const HpackRecoverReport& report) {
    const std::string package = PrintableText(options.package);
    for (const HpackRecoverNote& note : report.notes) {
        const bool nowTaken = note.kind == HpackRecoverNote::unlisted && options.all;
        std::printf("%s: %s, at %" PRIu32 ": %s%s\n", package.c_str(), QuoteKey(note.key).c_str(),
                    note.offset, HpackRecoverNote::Text(note.kind), nowTaken ? "; taken" : "");
    }
    if (report.unnoted != 0) {
        std::printf("%s: %" PRIu32 " more records not shown\n", package.c_str(), report.unnoted);
    }
    std::printf("%s: %s\n", package.c_str(), IndexText(report.index));
    if (!report.header) {
        std::printf("%s: the header is lost: identity and state are 0\n", package.c_str());
    }
    std::printf("%s: %" PRIu32 " items recovered, %" PRIu32 " by the index; %" PRIu32
                " other versions left out\n",
                package.c_str(), report.items, report.listed, report.superseded);
}

static HpackStep ShowSteps(CTProgress& progress, const char* status) {
    return [&progress, status](std::size_t item, std::size_t count) {
        StopIfInterrupted(progress);
        if (item == 0) {
            StartPhase(progress, status, count);
        }
        Advance(progress, 1);
    };
}

static void Recover(const RecoverOptions& options) {
    Hfile32 file;
    OpenAnything(file, options.package);
    HpackRecoverReport report;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        NewPackage output(options.output, options.force, progress);
        Hpack target;
        HpackRecoverOptions how;
        how.unlisted = options.all;
        how.beforeItem = ShowSteps(progress, "copying");
        how.poll = [&] { StopIfInterrupted(progress); };
        StartPhase(progress, "searching", 0);
        OnPackage(options.package, [&] {
            target.Open(output.Path(), 'w');
            report = HpackRecover(file, target, how);
            target.Close();
        });
        if (report.items == 0 && !report.header) {
            throw ToolFailure(options.package + ": nothing in it is of a package");
        }
        output.Commit();
    });
    if (!options.quiet) {
        PrintReport(options, report);
    }
}

// Reads the new file back and compares before it replaces anything.
static void CompactTo(NewPackage& output, const CompactOptions& options, CTProgress& progress) {
    const HpackOrder order = options.order == "key" ? HpackOrder::key : HpackOrder::offset;
    PackageReader reader(options.package);
    reader.RequireIndex();
    reader.RequireNoOverlap();
    Hpack& source = reader.Package();
    OnPackage(options.package, [&] {
        Hpack target;
        target.Open(output.Path(), 'w');
        HpackCompact(source, target, order, ShowSteps(progress, "copying"));
        target.Close();
        target.Open(output.Path(), 'r');
        if (!HpackSame(source, target, ShowSteps(progress, "comparing"))) {
            throw ToolFailure(options.package + ": what was written does not read back the same");
        }
    });
    output.Commit();
}

static void Compact(const CompactOptions& options) {
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        const bool inPlace = options.output.empty();
        NewPackage output(inPlace ? options.package : options.output, inPlace || options.force,
                          progress);
        CompactTo(output, options, progress);
    });
}

void AddRepairCommands(CLI::App& app) {
    const auto [checkCommand, check] = AddPackageCommand(
        app, "check", "Read the entire package and report each fault",
        "A line for each fault; no output, and exit status 0, if there is none. Works on files\n"
        "that do not open. Bodies have no checksum: see sum --store.\n"
        "\n"
        "Examples:\n"
        "  hpk check letters.hpk\n"
        "  hpk check --json letters.hpk",
        &Check);
    checkCommand.add_flag("--json", check.json, "Show one object");

    const auto [recoverCommand, recover] = AddPackageCommand(
        app, "recover", "Create a package from what is readable",
        "Items come from the index and, if that is missing or damaged, from a search for\n"
        "records. Dropped and undecided items are reported, a line each. The index decides what\n"
        "was deleted; without it deleted items may come back.\n"
        "\n"
        "Example:\n"
        "  hpk recover damaged.hpk saved.hpk",
        &Recover);
    AddPackageArgument(recoverCommand, "OUT", recover.output, "The new package")->required();
    recoverCommand.add_flag("-a,--all", recover.all, "Also recover deleted and unsaved items");
    recoverCommand.add_flag("-f,--force", recover.force, "Replace an existing file");
    recover.AddQuiet(recoverCommand);

    const auto [compactCommand, compact] = AddPackageCommand(
        app, "compact", "Rewrite a package without dead space",
        "Items, identity and state stay the same. The new file is read back and compared\n"
        "before it replaces the package, or OUT.\n"
        "\n"
        "Examples:\n"
        "  hpk compact letters.hpk\n"
        "  hpk compact letters.hpk small.hpk --order offset",
        &Compact);
    AddPackageArgument(compactCommand, "OUT", compact.output, "A new package instead");
    compactCommand
        .add_option("--order", compact.order, "Order of the records: key (the default) or offset")
        ->check(CLI::IsMember({"key", "offset"}))
        ->type_name("");
    compactCommand.add_flag("-f,--force", compact.force, "Replace an existing OUT");
    compact.AddQuiet(compactCommand);
}

}  // namespace vantry_tools
