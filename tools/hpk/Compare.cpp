#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "tools/common/KeyText.h"
#include "tools/common/Terminal.h"
#include "tools/hpk/Bodies.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct DiffOptions : PackageOptions {
    std::string other;
    Colors colors;
};

void Print(const DiffOptions& options, char what, const qtString& key) {
    if (!options.quiet) {
        const char* const color = what == '-' ? "31" : what == '+' ? "32" : "33";
        const std::string line = std::string(1, what) + ' ' + QuoteKey(key);
        std::puts(options.colors.Paint(color, line).c_str());
    }
}

// Two packages, item by item.
class Comparison {
public:
    explicit Comparison(const DiffOptions& diffOptions)
        : options(diffOptions), former(options.package), latter(options.other) {
        former.RequireIndex();
        latter.RequireIndex();
    }

    /// Prints the differences. @return whether there are any
    bool Run() {
        const std::vector<qtString> left = former.Keys();
        const std::vector<qtString> right = latter.Keys();
        auto l = left.begin();
        auto r = right.begin();
        while (l != left.end() || r != right.end()) {
            if (r == right.end() || (l != left.end() && *l < *r)) {
                Report('-', *l++);
            } else if (l == left.end() || *r < *l) {
                Report('+', *r++);
            } else {
                if (!SameBody(*l)) {
                    Report('~', *l);
                }
                ++l, ++r;
            }
        }
        return differs;
    }

private:
    void Report(char what, const qtString& key) {
        differs = true;
        Print(options, what, key);
    }

    bool SameBody(const qtString& key) {
        const std::uint64_t size = former.Find(key).size;
        if (size != latter.Find(key).size) {
            return false;
        }
        constexpr std::uint64_t pieceSize = 1 << 20;
        PackageReader::Part part = {0, pieceSize};
        do {
            ReadPiece(former, key, part, formerPiece);
            ReadPiece(latter, key, part, latterPiece);
            part.offset += pieceSize;
        } while (formerPiece == latterPiece && part.offset < size);
        return formerPiece == latterPiece;
    }

    static void ReadPiece(PackageReader& reader, const qtString& key, PackageReader::Part part,
                          std::string& piece) {
        piece.clear();
        reader.Read(key, part,
                    [&](const char* data, std::size_t count) { piece.append(data, count); });
    }

    const DiffOptions& options;
    PackageReader former;
    PackageReader latter;
    std::string formerPiece;
    std::string latterPiece;
    bool differs = false;
};

}  // namespace

static bool DiffWithFolder(const DiffOptions& options) {
    PackageReader package(options.package);
    package.RequireIndex();
    Sources sources;
    std::vector<Difference> differences;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        sources.Exclude(OpenRegular(options.package, O_RDONLY).Get());
        sources.Collect({options.other}, progress);
        differences = CompareWithFiles(package, options.package, sources, progress);
    });
    for (const Difference& difference : differences) {
        Print(options, difference.kind, difference.key);
    }
    return !differences.empty();
}

static bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

static void Diff(const DiffOptions& options) {
    bool differs = false;
    try {
        differs = IsFolder(options.other) ? DiffWithFolder(options) : Comparison(options).Run();
    } catch (const std::exception&) {
        PrintError(DescribeException());
        throw ReportedFailure{exitUsage};  // to scripts, 1 is a difference
    }
    if (differs) {
        throw ReportedFailure();
    }
}

void AddCompareCommands(CLI::App& app) {
    const auto [diffCommand, diff] = AddPackageCommand(
        app, "diff", "Show how the items of two packages, or a package and a folder, differ",
        "A line for each: - only in PKG, + only in OTHER, ~ different body. Offsets and\n"
        "identity are not compared. If OTHER is a folder, its files have keys as for\n"
        "create.\n"
        "Exit status: 0 same, 1 different, 2 a package could not be read.\n"
        "\n"
        "Example:\n"
        "  hpk diff old.hpk new.hpk\n"
        "  hpk diff include.hpk /usr/include",
        &Diff);
    diffCommand.alias("cmp");
    AddPackageArgument(diffCommand, "OTHER", diff.other, "The package or folder to compare with")
        ->required();
    diffCommand.add_flag("-q,--quiet", diff.quiet, "Print nothing; only the exit status counts");
    diff.colors.AddTo(diffCommand);
}

}  // namespace vantry_tools
