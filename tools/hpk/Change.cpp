#include <vector>

#include "tools/common/KeyText.h"
#include "tools/hpk/ChangePackage.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/ItemStore.h"
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

static std::vector<qtString> Keys(const Hpack& package) {
    std::vector<qtString> keys;
    package.GetIndex(keys);
    return keys;
}

static void Remove(const RemoveOptions& options) {
    if (options.words.Empty()) {
        throw UsageFailure("KEY is required");
    }
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress&) {
        KeyArguments words = options.words;
        const std::vector<qtString> keys = words.TakeKeys([&] { return Keys(package); });
        for (const qtString& key : keys) {
            if (!options.force && !package.Contains(key)) {
                throw NoSuchItem(options.package, key, Keys(package));
            }
        }
        for (const qtString& key : keys) {
            package.Delete(key);
        }
    });
}

static void Move(const MoveOptions& options) {
    KeyArguments words = options.words;
    const qtString oldKey = words.TakeKey("OLD");
    const qtString newKey = words.TakeKey("NEW");
    words.RequireEnd();
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress&) {
        if (!package.Contains(oldKey)) {
            throw NoSuchItem(options.package, oldKey, Keys(package));
        }
        if (!options.force && package.Contains(newKey)) {
            throw ToolFailure(options.package + ": the item " + QuoteKey(newKey) +
                              " exists (--force replaces it)");
        }
        ItemStore(options.package, package).Move(oldKey, newKey);
    });
}

void AddChangeCommands(CLI::App& app) {
    const auto [removeCommand, remove] = AddPackageCommand(
        app, "rm", "Remove items from a package",
        "All or nothing: if one does not exist, none is removed. Their bytes become dead space.\n"
        "A KEY may be a pattern, as for list, unless an item has exactly that key.\n"
        "\n"
        "Examples:\n"
        "  hpk rm include.hpk stdio.h linux/types.h\n"
        "  hpk rm include.hpk 'linux/*'",
        &Remove);
    removeCommand.alias("delete");
    remove.words.AddTo(removeCommand, "KEY", "The items");
    removeCommand.add_flag("-f,--force", remove.force, "Ignore items that do not exist");
    remove.AddQuiet(removeCommand);

    const auto [moveCommand, move] = AddPackageCommand(app, "mv", "Rename an item",
                                                       "Examples:\n"
                                                       "  hpk mv letters.hpk alpha a\n"
                                                       "  hpk mv letters.hpk --number 7 seven",
                                                       &Move);
    moveCommand.alias("rename");
    move.words.AddTo(moveCommand, "KEY", "OLD NEW; a --number is OLD, and a second one is NEW");
    moveCommand.add_flag("-f,--force", move.force, "Replace an existing item NEW");
    move.AddQuiet(moveCommand);
}

}  // namespace vantry_tools
