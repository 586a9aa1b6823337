#include <algorithm>
#include <cstdio>

#include "tools/common/KeyText.h"
#include "tools/hpk/ChangePackage.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/DigestList.h"
#include "tools/hpk/InputText.h"
#include "tools/hpk/KeyArguments.h"

namespace vantry_tools {

namespace {

struct SumOptions : PackageOptions {
    KeyChoice choice;
    bool sha256 = false;
    bool blake2b = false;
    std::string check;
    std::string store;

    DigestKind Kind() const { return blake2b ? DigestKind::blake2b : DigestKind::sha256; }
};

}  // namespace

static std::function<void()> Step(CTProgress& progress) {
    return [&progress] {
        StopIfInterrupted(progress);
        Advance(progress, 1);
    };
}

static void PrintSums(const SumOptions& options) {
    PackageReader package(options.package);
    package.RequireIndex();
    KeyChoice choice = options.choice;
    const std::vector<qtString> keys = choice.Choose(package.Keys());
    std::string list;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        StartPhase(progress, "digesting", keys.size());
        list = MakeDigestList(package, keys, options.Kind(), Step(progress));
    });
    std::fwrite(list.data(), 1, list.size(), stdout);
    choice.FailIfUnused(options.package);
}

static void CheckSums(const SumOptions& options) {
    const std::string list = ReadInputText(options.check);
    PackageReader package(options.package);
    package.RequireIndex();
    KeyChoice choice = options.choice;
    const std::vector<qtString> keys = choice.Choose(package.Keys());
    std::vector<DigestFault> faults;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        StartPhase(progress, "digesting", keys.size());
        faults = CompareWithList(package, keys, list, options.check, Step(progress));
    });
    // Other keys of the list are not asked about.
    faults.erase(
        std::remove_if(faults.begin(), faults.end(),
                       [&choice](const DigestFault& fault) { return !choice.Selects(fault.key); }),
        faults.end());
    PrintFaults(options.package, faults);
    choice.FailIfUnused(options.package);
    if (!faults.empty()) {
        throw ReportedFailure();
    }
}

static void StoreSums(const SumOptions& options) {
    if (!options.choice.Empty()) {
        throw UsageFailure("--store takes no GLOB: it lists all items");
    }
    const qtString key = UnquoteKey(options.store);
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress& progress) {
        PackageReader former(options.package);
        StartPhase(progress, "digesting", former.Keys().size());
        const qtString list = MakeStoredList(former, key, options.Kind(), Step(progress));
        OnPackage(options.package, [&] { package.AddOrUpdate(key, list); });
    });
}

static void Sum(const SumOptions& options) {
    if (!options.store.empty()) {
        StoreSums(options);
    } else if (!options.check.empty()) {
        CheckSums(options);
    } else {
        PrintSums(options);
    }
}

void AddSumCommands(CLI::App& app) {
    const auto [sumCommand, sum] = AddPackageCommand(
        app, "sum", "Show digests of items, check them, or keep them",
        "Lines are those of sha256sum and b2sum, which can check extracted items by\n"
        "them. --check names items that have another digest, are missing or are not\n"
        "listed. After --store, check finds each changed byte, until the package is\n"
        "changed: then store again.\n"
        "\n"
        "Examples:\n"
        "  hpk sum letters.hpk >letters.sums\n"
        "  hpk sum letters.hpk --check letters.sums\n"
        "  hpk sum letters.hpk --store SUMS; hpk check letters.hpk",
        &Sum);
    sum.choice.AddTo(sumCommand, "GLOB", "The items instead of all");
    CLI::Option* const sha256 =
        sumCommand.add_flag("--sha256", sum.sha256, "Make SHA-256 digests, the default");
    sumCommand.add_flag("--blake2b", sum.blake2b, "Make BLAKE2b digests of 512 bits")
        ->excludes(sha256);
    CLI::Option* const check =
        sumCommand.add_option("--check", sum.check, "Compare with this list; - for standard input")
            ->type_name("FILE");
    sumCommand.add_option("--store", sum.store, "Keep the list of all other items as the item KEY")
        ->excludes(check)
        ->type_name("KEY");
    sum.AddQuiet(sumCommand);
}

}  // namespace vantry_tools
