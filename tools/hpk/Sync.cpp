#include <sys/stat.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "tools/common/KeyText.h"
#include "tools/hpk/Bodies.h"
#include "tools/hpk/ChangePackage.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/NewPackage.h"

namespace vantry_tools {

namespace {

struct SyncOptions : PackageOptions {
    std::string folder;
    bool removes = false;
    bool onlyShows = false;
};

struct CopyOptions : PackageOptions {
    std::string target;
    KeyChoice choice;
};

// Thrown out of a change that has nothing to do: the package is not replaced.
struct Unchanged {};

// What sync has to do, and the files that it needs for that.
class Plan {
public:
    Plan(const SyncOptions& syncOptions, CTProgress& progress)
        : options(syncOptions), package(options.package) {
        package.RequireIndex();
        sources.Exclude(OpenRegular(options.package, O_RDONLY).Get());
        sources.Collect({options.folder}, progress);
        steps = CompareWithFiles(package, options.package, sources, progress);
        if (!options.removes) {
            steps.erase(std::remove_if(steps.begin(), steps.end(),
                                       [](const Difference& step) {
                                           return step.kind == Difference::onlyItem;
                                       }),
                        steps.end());
        }
    }

    const std::vector<Difference>& Steps() const { return steps; }
    const std::vector<std::string>& Skipped() const { return sources.Skipped(); }

    void Do(Hpack& target, CTProgress& progress) {
        StartPhase(progress, "storing", sources.TotalSize(), Unit::bytes);
        ItemStore store(options.package, target);
        for (const Difference& step : steps) {
            if (step.kind == Difference::onlyItem) {
                OnPackage(options.package, [&] { target.Delete(step.key); });
            } else if (const FileDescriptor file = sources.Open(*step.file)) {
                const PieceReader read = ReadFrom(file.Get(), step.file->path, progress);
                OnPackage(options.package, [&] { store.Put(step.key, read); });
            }
        }
    }

private:
    const SyncOptions& options;
    PackageReader package;
    Sources sources;
    std::vector<Difference> steps;
};

}  // namespace

static bool Exists(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 || errno != ENOENT;
}

static void RequireFolder(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        throw SystemError(errno, "cannot open", path);
    }
    if (!S_ISDIR(status.st_mode)) {
        throw ToolFailure("cannot read " + path + ": not a folder");
    }
}

static void Sync(const SyncOptions& options) {
    RequireFolder(options.folder);
    std::vector<std::string> skipped;
    std::vector<Difference> steps;
    const auto note = [&](const Plan& plan) {
        skipped = plan.Skipped();
        steps = plan.Steps();
    };
    if (options.onlyShows) {
        RunLongWork(options.quiet, [&](CTProgress& progress) { note(Plan(options, progress)); });
        for (const Difference& step : steps) {
            std::printf("%c %s\n", step.kind, QuoteKey(step.key).c_str());
        }
    } else {
        try {
            ChangePackage(options.package, options.quiet,
                          [&](Hpack& package, CTProgress& progress) {
                              Plan plan(options, progress);
                              note(plan);
                              if (steps.empty()) {
                                  throw Unchanged();
                              }
                              plan.Do(package, progress);
                          });
        } catch (const Unchanged&) {
        }
    }
    for (const std::string& line : skipped) {
        if (!options.quiet) {
            PrintError(line);
        }
    }
}

// The keys of items that the target lacks, or has with another body.
static std::vector<qtString> NewKeys(PackageReader& source, const CopyOptions& options,
                                     const std::vector<qtString>& keys, CTProgress& progress) {
    PackageReader target(options.target);
    target.RequireIndex();
    const std::vector<qtString> present = target.Keys();
    std::vector<qtString> changed;
    for (const qtString& key : keys) {
        StopIfInterrupted(progress);
        if (!std::binary_search(present.begin(), present.end(), key) ||
            source.Find(key).size != target.Find(key).size ||
            !SameBytes(ReadItem(source, options.package, key),
                       ReadItem(target, options.target, key))) {
            changed.push_back(key);
        }
    }
    return changed;
}

static void CopyItems(PackageReader& source, const CopyOptions& options,
                      const std::vector<qtString>& keys, ItemStore& store, CTProgress& progress) {
    StartPhase(progress, "copying items", keys.size());
    for (const qtString& key : keys) {
        StopIfInterrupted(progress);
        const PieceReader read = ReadItem(source, options.package, key);
        OnPackage(options.target, [&] { store.Put(key, read); });
        Advance(progress, 1);
    }
}

static void CopyToNew(PackageReader& source, const CopyOptions& options,
                      const std::vector<qtString>& keys) {
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        NewPackage file(options.target, false, progress);
        Hpack package;
        OnPackage(options.target, [&] { package.Open(file.Path(), 'w'); });
        ItemStore store(package);
        CopyItems(source, options, keys, store, progress);
        OnPackage(options.target, [&] { package.Close(); });
        file.Commit();
    });
}

static void Copy(const CopyOptions& options) {
    PackageReader source(options.package);
    source.RequireIndex();
    source.RequireNoOverlap();
    KeyChoice choice = options.choice;
    const std::vector<qtString> keys = choice.Choose(source.Keys());
    choice.FailIfUnused(options.package);
    if (!Exists(options.target)) {
        CopyToNew(source, options, keys);
        return;
    }
    try {
        ChangePackage(options.target, options.quiet, [&](Hpack& package, CTProgress& progress) {
            const std::vector<qtString> changed = NewKeys(source, options, keys, progress);
            if (changed.empty()) {
                throw Unchanged();
            }
            ItemStore store(options.target, package);
            CopyItems(source, options, changed, store, progress);
        });
    } catch (const Unchanged&) {
    }
}

void AddSyncCommands(CLI::App& app) {
    const auto [syncCommand, sync] = AddPackageCommand(
        app, "sync", "Make the items of a package those of a folder",
        "New and changed files below DIR are stored, with keys as for create. Equal\n"
        "bodies are not written again. With -n, a line for each change: + new item,\n"
        "~ different body, - item to remove.\n"
        "\n"
        "Examples:\n"
        "  hpk sync include.hpk /usr/include\n"
        "  hpk sync -n --delete include.hpk /usr/include",
        &Sync);
    AddPositional(syncCommand, "DIR", sync.folder, "The folder");
    syncCommand.add_flag("--delete", sync.removes, "Remove items that have no file");
    syncCommand.add_flag("-n,--dry-run", sync.onlyShows, "Show the changes, and make none");
    sync.AddQuiet(syncCommand);

    const auto [copyCommand, copy] = AddPackageCommand(
        app, "copy", "Copy items to another package",
        "OTHER is created if it does not exist. Items with the same key are replaced;\n"
        "equal bodies are not written again.\n"
        "\n"
        "Examples:\n"
        "  hpk copy include.hpk linux.hpk 'linux/*'\n"
        "  hpk copy new.hpk all.hpk",
        &Copy);
    AddPackageArgument(copyCommand, "OTHER", copy.target, "The package to copy to")->required();
    copy.choice.AddTo(copyCommand, "GLOB", "The items to copy instead of all");
    copy.AddQuiet(copyCommand);
}

}  // namespace vantry_tools
