#include <cstdio>
#include <iterator>
#include <string>

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
    bool withPasswords = false;
};

struct LoadOptions {
    std::string file;
    bool dryRun = false;
};

}  // namespace

static void ListAsJson(const Records& records) {
    JsonArrayPrinter printer;
    for (const auto& record : records) {
        Json object = {{"key", QuoteKey(record.first)}, {"size", record.second.size()}};
        object["value"] = IsPassword(record.first) ? Json() : Json(QuoteKey(record.second));
        printer.Print(object);
    }
    printer.End();
}

// The records whose keys start with the word or, where none does, those that it matches.
static Records Choose(UnixRegistry& store, const std::string& word) {
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
    const Records records = Choose(store, options.prefix);
    if (options.json) {
        ListAsJson(records);
        return;
    }
    for (const auto& record : records) {
        const std::string value = options.isLong ? "\t" + ShowValue(record) : "";
        std::puts((QuoteKey(record.first) + value).c_str());
    }
}

static void Dump(const DumpOptions& options) {
    UnixRegistry store;
    OpenExisting(store);
    Records records = ReadRecords(store);
    std::size_t leftOut = 0;
    for (auto record = records.begin(); record != records.end();) {
        const bool leave = IsPassword(record->first) && !options.withPasswords;
        leftOut += leave ? 1 : 0;
        record = leave ? records.erase(record) : std::next(record);
    }
    const auto print = [&] {
        const std::string text = DumpRecords(records);
        std::fwrite(text.data(), 1, text.size(), stdout);
    };
    PrintTo(options.file, print, 0600);
    if (leftOut != 0) {
        PrintError("passwords left out: " + std::to_string(leftOut));
    }
}

static void Load(const LoadOptions& options) {
    const Records records = ParseDump(ReadWhole(options.file), options.file);
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
        throw ToolFailure(options.file + ": nothing was loaded (" + UnixRegistry::LastError() +
                          ")");
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
        .add_option("PREFIX", list.prefix, "Only the keys that start with it, or match it: Pop/*")
        ->type_name("");
    CLI::Option* const isLong =
        listCommand.add_flag("-l,--long", list.isLong, "Show each value behind its key");
    listCommand.add_flag("--json", list.json, "Show an array of objects")->excludes(isLong);

    const auto [dumpCommand, dump] =
        AddCommand(app, "dump", "Write all records as text that keeps every byte",
                   "A line is a key, a tab and a value, in quotes where they are not printable.\n"
                   "\n"
                   "Examples:\n"
                   "  vexreg dump registry.dump\n"
                   "  vexreg dump | BASEKIT_REGISTRY=/tmp/copy vexreg load -",
                   &Dump);
    dumpCommand.add_option("FILE", dump.file, "The file to write, in one step")
        ->type_name("")
        ->default_str("standard output");
    dumpCommand.add_flag("--with-passwords", dump.withPasswords,
                         "Passwords too, encrypted as they are stored");

    const auto [loadCommand, load] =
        AddCommand(app, "load", "Store all records that dump wrote, or none",
                   "Keys that the file does not name stay as they are.\n"
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
