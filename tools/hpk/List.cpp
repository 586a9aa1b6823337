#include <unistd.h>

#include <cstdio>

#include "tools/common/HumanSize.h"
#include "tools/common/JsonOutput.h"
#include "tools/common/KeyText.h"
#include "tools/common/Terminal.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct ListOptions : PackageOptions {
    KeyChoice choice;
    Colors colors;
    bool isLong = false;
    bool human = false;
    bool json = false;
    bool nul = false;
};

// Finds records. Those of damaged items are reported once.
class Places {
public:
    explicit Places(PackageReader& packageReader) : reader(packageReader) {}

    bool Find(const qtString& key, PackageReader::Place& place) {
        try {
            place = reader.Find(key);
            return true;
        } catch (const PackageFailure& failure) {
            PrintError(failure.what());
            failed = true;
            return false;
        }
    }
    void FailIfAny() const {
        if (failed) {
            throw ReportedFailure();
        }
    }

private:
    PackageReader& reader;
    bool failed = false;
};

}  // namespace

static void ListAsJson(const std::vector<qtString>& keys, Places& places) {
    JsonArrayPrinter printer;
    for (const qtString& key : keys) {
        Json item;
        AddKey(item, "key", key);
        PackageReader::Place place;
        const bool found = places.Find(key, place);
        item["offset"] = found ? Json(place.offset) : Json();
        item["size"] = found ? Json(place.size) : Json();
        printer.Print(item);
    }
    printer.End();
}

static std::string Size(unsigned int bytes, bool human) {
    return human ? HumanSize(bytes) : std::to_string(bytes);
}

// Colors the part that keys of one folder share.
static std::string PaintFolder(const std::string& name, const Colors& colors) {
    const std::size_t end = name.rfind('/') + 1;
    return end == 0 ? name : colors.Paint("34", name.substr(0, end)) + name.substr(end);
}

static void ListAsText(const std::vector<qtString>& keys, Places& places,
                       const ListOptions& options) {
    const bool raw = options.nul && isatty(STDOUT_FILENO) == 0;
    const int width = options.human ? 5 : 10;
    for (const qtString& key : keys) {
        if (options.isLong) {
            PackageReader::Place place;
            const bool found = places.Find(key, place);
            const std::string size = found ? Size(place.size, options.human) : "?";
            const std::string offset = found ? std::to_string(place.offset) : "?";
            std::printf("%*s %10s  ", width, size.c_str(), offset.c_str());
        }
        const std::string name =
            raw ? std::string(key) : PaintFolder(QuoteKey(key), options.colors);
        std::fwrite(name.data(), 1, name.size(), stdout);
        std::putchar(options.nul ? 0 : '\n');
    }
}

static void List(const ListOptions& options) {
    PackageReader reader(options.package);
    reader.RequireIndex();
    KeyChoice choice = options.choice;
    const std::vector<qtString> keys = choice.Choose(reader.Keys());
    Places places(reader);
    if (options.json) {
        ListAsJson(keys, places);
    } else {
        ListAsText(keys, places, options);
    }
    choice.FailIfUnused(options.package);
    places.FailIfAny();
}

void AddListCommands(CLI::App& app) {
    const auto [listCommand, list] = AddPackageCommand(
        app, "list", "Show the keys of a package, in order",
        "A GLOB is a key, in quotes or not; a pattern, in which * also matches slashes; or a\n"
        "prefix that ends in a slash.\n"
        "\n"
        "Examples:\n"
        "  hpk list -lh include.hpk 'linux/*.h'\n"
        "  hpk list -0 a.hpk 'tmp/*' | xargs -0r hpk rm --raw a.hpk --",
        &List);
    listCommand.alias("ls")->alias("t");
    AddHuman(listCommand, list.human);
    list.choice.AddTo(listCommand, "GLOB", "The items to show (default: all)");
    listCommand.add_flag("-l,--long", list.isLong, "Show size and offset before each key");
    list.colors.AddTo(listCommand);
    CLI::Option* const json = listCommand.add_flag("--json", list.json, "Show an array of objects");
    listCommand
        .add_flag("-0,--null", list.nul,
                  "End keys with NUL and, except on a terminal, never quote them")
        ->excludes(json);
}

}  // namespace vantry_tools
