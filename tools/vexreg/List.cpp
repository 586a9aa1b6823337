#include <cstdio>
#include <iterator>
#include <string>

#include "VexUnix/VexRegistryUnix.h"
#include "tools/common/Failures.h"
#include "tools/common/JsonOutput.h"
#include "tools/common/KeyText.h"
#include "tools/vexreg/Commands.h"
#include "tools/vexreg/DumpText.h"
#include "tools/vexreg/Records.h"

namespace vantry_tools {

namespace {

struct ListOptions {
    std::string prefix;
    bool isLong = false;
    bool json = false;
};

struct DumpOptions {
    std::string file;
    RecordChoice choice;
    bool withPasswords = false;
};

struct LoadOptions {
    std::string file;
    bool dryRun = false;
};

}  // namespace

static void ListAsJson(const Records& records) {
    JsonArrayPrinter printer;
    for (const auto& [key, value] : records) {
        Json object;
        AddKey(object, "key", key);
        object["size"] = value.size();
        if (CvexRegEdit::IsPasswordKey(key)) {
            object["value"] = object["value_hex"] = Json();
        } else {
            AddKey(object, "value", value);
        }
        printer.Print(object);
    }
    printer.End();
}

// The records whose keys begin with the word or, if there are none, match it as a pattern.
static Records FindRecords(UnixRegistry& store, const std::string& word) {
    Records records = ReadRecords(store, UnquoteKey(word));
    if (records.empty() && word.find_first_of("*?[") != std::string::npos) {
        records = ReadRecords(store);
        for (auto record = records.begin(); record != records.end();) {
            record = MatchesGlob(word, record->first) ? std::next(record) : records.erase(record);
        }
    }
    return records;
}

static void List(const ListOptions& options) {
    UnixRegistry store;
    OpenExisting(store);
    const Records records = FindRecords(store, options.prefix);
    if (options.json) {
        ListAsJson(records);
    } else {
        for (const auto& [key, value] : records) {
            PrintSafely(QuoteKey(key) + (options.isLong ? "\t" + ShowValue(key, value) : "") +
                        '\n');
        }
    }
    if (records.empty() && !options.prefix.empty()) {
        throw ToolFailure("no key begins with or matches " + options.prefix + " (" +
                          UnixRegistry::DatabasePath() + ")");
    }
}

static void Dump(const DumpOptions& options) {
    UnixRegistry store;
    OpenExisting(store);
    const Records all = ReadRecords(store);
    Records records = options.choice.Choose(all);
    std::size_t omitted = 0;
    for (auto record = records.begin(); record != records.end();) {
        const bool omit = CvexRegEdit::IsPasswordKey(record->first) && !options.withPasswords;
        omitted += omit ? 1 : 0;
        record = omit ? records.erase(record) : std::next(record);
    }
    PrintTo(
        options.file, [&] { PrintSafely(DumpRecords(records)); }, 0600);
    if (omitted != 0) {
        PrintError("passwords omitted: " + std::to_string(omitted));
    }
    if (!options.choice.AllSelect(all, "no such key")) {
        throw ReportedFailure();
    }
}

static void Load(const LoadOptions& options) {
    const Records records = ParseDump(ReadAll(options.file), options.file);
    if (options.dryRun) {
        PrintChanges(records);
        return;
    }
    UnixRegistry store;
    bool done = store.Open(true);
    if (done) {
        UnixRegistry::Update update(store);
        for (const auto& [key, value] : records) {
            done = done && update.Set(key, value.data(), value.size());
        }
        done = done && update.Commit();
    }
    if (!done) {
        throw ToolFailure(options.file + ": nothing was loaded (" + FailureCause() + ")");
    }
    std::printf("loaded %zu keys\n", records.size());
}

void AddListCommands(CLI::App& app) {
    const auto [listCommand, list] = AddCommand(app, "list", "Show the keys, in order",
                                                "Passwords are never shown.\n"
                                                "\n"
                                                "Examples:\n"
                                                "  vexreg list\n"
                                                "  vexreg list -l Pop/",
                                                &List);
    listCommand.alias("ls");
    listCommand
        .add_option("PREFIX", list.prefix, "Only keys that begin with it, or match it: 'Pop/*'")
        ->type_name("");
    CLI::Option* const isLong =
        listCommand.add_flag("-l,--long", list.isLong, "Show each value after its key");
    listCommand.add_flag("--json", list.json, "Show an array of objects")->excludes(isLong);

    const auto [dumpCommand, dump] = AddCommand(
        app, "dump", "Write records as text that keeps every byte",
        "Each line has a key, a tab and a value, quoted if they are not printable. With\n"
        "KEY words, only those records are written: keys, prefixes that end in a slash,\n"
        "patterns with *, ? or [.\n"
        "\n"
        "Examples:\n"
        "  vexreg dump registry.dump\n"
        "  vexreg dump - Pop/\n"
        "  vexreg dump | BASEKIT_REGISTRY=/tmp/copy vexreg load -",
        &Dump);
    dumpCommand.add_option("FILE", dump.file, "The file to write; it appears when it is complete")
        ->type_name("")
        ->default_str("standard output");
    dumpCommand.add_flag("--with-passwords", dump.withPasswords,
                         "Passwords too, encrypted as they are stored");
    dump.choice.AddTo(dumpCommand, "The records to write");

    const auto [loadCommand, load] =
        AddCommand(app, "load", "Store all records that dump wrote, or none",
                   "Other keys keep their values.\n"
                   "\n"
                   "Examples:\n"
                   "  vexreg load --dry-run registry.dump\n"
                   "  vexreg load registry.dump",
                   &Load);
    AddPositional(loadCommand, "FILE", load.file, "The file to read; - for standard input");
    loadCommand.add_flag("--dry-run", load.dryRun,
                         "Only show what would be added, changed and kept");
}

}  // namespace vantry_tools
