#include <algorithm>
#include <vector>

#include "tools/common/KeyText.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct RemoveOptions : PackageOptions {
    KeyArguments words;
    bool force = false;
};

struct MoveOptions : PackageOptions {
    KeyArguments words;
    bool force = false;
};

}  // namespace

static bool Has(const std::vector<qtString>& keys, const qtString& key) {
    return std::binary_search(keys.begin(), keys.end(), key);
}

static void Remove(const RemoveOptions& options) {
    KeyArguments words = options.words;
    if (words.Empty()) {
        throw UsageFailure("KEY is required");
    }
    const LockedPackage original(options.package);
    const std::vector<qtString> present = original.Keys();
    const std::vector<qtString> keys =
        words.TakeKeys([&]() -> const std::vector<qtString>& { return present; });
    if (!options.force) {
        for (const qtString& key : keys) {
            if (!Has(present, key)) {
                throw NoSuchItem(options.package, key);
            }
        }
    }
    ChangePackage(original, options.quiet, [&](Hpack& package, CTProgress&) {
        for (const qtString& key : keys) {
            OnPackage(options.package, [&] { package.Delete(key); });
        }
    });
}

static void Move(const MoveOptions& options) {
    KeyArguments words = options.words;
    const qtString oldKey = words.TakeKey("OLD");
    const qtString newKey = words.TakeKey("NEW");
    words.RequireEnd();
    const LockedPackage original(options.package);
    const std::vector<qtString> present = original.Keys();
    if (!Has(present, oldKey)) {
        throw NoSuchItem(options.package, oldKey);
    }
    if (!options.force && Has(present, newKey)) {
        throw ToolFailure(options.package + ": the item " + QuoteKey(newKey) +
                          " is already there (--force replaces it)");
    }
    ChangePackage(original, options.quiet, [&](Hpack& package, CTProgress&) {
        OnPackage(options.package, [&] { package.Rename(oldKey, newKey); });
    });
}

void AddChangeCommands(CLI::App& app) {
    const auto [removeCommand, remove] = AddPackageCommand(
        app, "rm", "Take items out of a package",
        "All of them or, when one is not there, none. Their bytes become dead space. A KEY may\n"
        "be a pattern, as for list, unless there is an item with just that key.\n"
        "\n"
        "Examples:\n"
        "  hpk rm include.hpk stdio.h linux/types.h\n"
        "  hpk rm include.hpk 'linux/*'",
        &Remove);
    removeCommand.alias("delete");
    remove.words.AddTo(removeCommand, "KEY", "The items");
    removeCommand.add_flag("-f,--force", remove.force, "Do not mind items that are not there");
    remove.AddQuiet(removeCommand);

    const auto [moveCommand, move] = AddPackageCommand(app, "mv", "Move an item to another key",
                                                       "Examples:\n"
                                                       "  hpk mv letters.hpk alpha a\n"
                                                       "  hpk mv letters.hpk --number 7 seven",
                                                       &Move);
    moveCommand.alias("rename");
    move.words.AddTo(moveCommand, "KEY", "OLD NEW; a --number is OLD, and a second one is NEW");
    moveCommand.add_flag("-f,--force", move.force, "Replace an item that has the new key");
    move.AddQuiet(moveCommand);
}

}  // namespace vantry_tools
