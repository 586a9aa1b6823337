#include <sys/stat.h>

#include <optional>

#include "system/Folder.h"
#include "tools/common/KeyText.h"
#include "tools/common/LongWork.h"
#include "tools/common/PrintableText.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/OutputFolder.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct GetOptions : PackageOptions {
    KeyArguments words;
    PackageReader::Part part;
    std::string output;
};

struct ExtractOptions : PackageOptions {
    KeyChoice choice;
    std::string folder = ".";
};

}  // namespace

static void WriteBodies(PackageReader& reader, const std::vector<qtString>& keys,
                        PackageReader::Part part, int descriptor, const std::string& shown) {
    // Escape sequences in a body must not reach a terminal.
    const bool escape = isatty(descriptor) == 1;
    PrintableStream printable;
    const auto write = [&](std::string_view text) {
        WriteAll(descriptor, text.data(), text.size(), shown);
    };
    for (const qtString& key : keys) {
        reader.Read(key, part, [&](const char* data, std::size_t count) {
            const std::string_view piece(data, count);
            escape ? write(printable.Next(piece)) : write(piece);
        });
    }
    write(printable.End());
}

// A device or a FIFO is written to directly; it cannot be replaced.
// @throws SystemError if the path is a link that another user has put into a folder for all
static bool TakesBytesDirectly(const std::string& path) {
    vantry_internal::FollowLinks(path);
    struct stat status;
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

static void GetToFile(PackageReader& reader, const std::vector<qtString>& keys,
                      const GetOptions& options) {
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        AtomicFile file(options.output, AtomicFile::Existing::replace);
        for (const qtString& key : keys) {
            StartPhase(progress, "getting", options.part.LengthIn(reader.Find(key).size),
                       Unit::bytes);
            reader.Read(key, options.part, [&](const char* data, std::size_t count) {
                StopIfInterrupted(progress);
                WriteAll(file.Descriptor(), data, count, options.output);
                Advance(progress, count);
            });
        }
        file.Commit();
    });
}

static void Get(const GetOptions& options) {
    KeyArguments words = options.words;
    if (words.Empty()) {
        throw UsageFailure("KEY is required");
    }
    PackageReader reader(options.package);
    reader.RequireIndex();
    const std::vector<qtString> keys = words.TakeKeys([&] { return reader.Keys(); });
    for (const qtString& key : keys) {
        if (!reader.Package().Contains(key)) {
            throw NoSuchItem(options.package, key, reader.Keys());
        }
    }
    const std::string& output = options.output;
    if (output.empty() || output == "-") {
        WriteBodies(reader, keys, options.part, STDOUT_FILENO, "standard output");
    } else if (TakesBytesDirectly(output)) {
        const FileDescriptor file(open(output.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
        if (!file) {
            throw SystemError(errno, "cannot open", output);
        }
        WriteBodies(reader, keys, options.part, file.Get(), output);
    } else {
        GetToFile(reader, keys, options);
    }
}

static std::optional<std::string> ExtractItem(PackageReader& reader, const qtString& key,
                                              OutputFolder& folder, CTProgress& progress) {
    try {
        folder.Write(key, [&](int descriptor, const std::string& shown) {
            reader.Read(key, [&](const char* data, std::size_t count) {
                StopIfInterrupted(progress);
                WriteAll(descriptor, data, count, shown);
                Advance(progress, count);
            });
        });
        return std::nullopt;
    } catch (const RefusedPath& refusal) {
        return "not extracted: " + QuoteKey(key) + ": " + refusal.what();
    } catch (const PackageFailure& failure) {
        return failure.what();
    }
}

static std::uint64_t TotalSize(PackageReader& reader, const std::vector<qtString>& keys) {
    std::uint64_t size = 0;
    for (const qtString& key : keys) {
        try {
            size += reader.Find(key).size;
        } catch (const PackageFailure&) {  // reported when it is extracted
        }
    }
    return size;
}

static void Extract(const ExtractOptions& options) {
    PackageReader reader(options.package);
    reader.RequireIndex();
    reader.RequireNoOverlap();
    KeyChoice choice = options.choice;
    const std::vector<qtString> keys = choice.Choose(reader.Keys());
    std::vector<std::string> failures;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        StartPhase(progress, "extracting", TotalSize(reader, keys), Unit::bytes);
        OutputFolder folder(options.folder);
        for (const qtString& key : keys) {
            StopIfInterrupted(progress);
            if (auto failure = ExtractItem(reader, key, folder, progress)) {
                failures.push_back(std::move(*failure));
            }
        }
    });
    for (const std::string& failure : failures) {
        PrintError(failure);
    }
    choice.FailIfUnused(options.package);
    if (!failures.empty()) {
        throw ReportedFailure();
    }
}

// The parser would read -1 as the largest number.
static void AddBytes(CLI::App& command, const char* name, std::uint64_t& value,
                     const char* description) {
    const CLI::Validator unsignedNumber(
        [](const std::string& word) {
            return word.compare(0, 1, "-") == 0 ? word + " is below 0" : std::string();
        },
        "");
    command.add_option(name, value, description)
        ->check(unsignedNumber)
        ->default_str("")
        ->type_name("N");
}

void AddGetCommands(CLI::App& app) {
    const auto [getCommand, get] =
        AddPackageCommand(app, "get", "Write the bodies of items to standard output",
                          "Bodies follow one another in the order given. A KEY may\n"
                          "be a pattern, as for list, unless an item has exactly that\n"
                          "key. On a terminal, control characters are escaped.\n"
                          "\n"
                          "Examples:\n"
                          "  hpk get include.hpk linux/types.h | less\n"
                          "  hpk get include.hpk linux/types.h -o types.h\n"
                          "  hpk cat log.hpk today --offset 4096 --length 512",
                          &Get);
    getCommand.alias("cat");
    get.words.AddTo(getCommand, "KEY", "The items");
    AddBytes(getCommand, "--offset", get.part.offset, "Skip that many bytes of each body");
    AddBytes(getCommand, "--length", get.part.length, "Write at most that many bytes of each body");
    getCommand.add_option("-o,--output", get.output, "Write to this file, or replace it")
        ->type_name("FILE");
    get.AddQuiet(getCommand);

    const auto [extractCommand, extract] = AddPackageCommand(
        app, "extract", "Write items to files below a folder",
        "Keys are paths below the folder. Keys that would lead out of it, directly or through\n"
        "a link, are refused and reported; the rest is extracted. Existing files are replaced.\n"
        "\n"
        "Examples:\n"
        "  hpk extract include.hpk -C copy\n"
        "  hpk extract include.hpk 'linux/*.h'",
        &Extract);
    extractCommand.alias("x");
    extract.choice.AddTo(extractCommand, "GLOB", "The items to extract (default: all)");
    extractCommand
        .add_option("-C,--directory", extract.folder,
                    "The folder, created if missing (default: current)")
        ->type_name("DIR");
    extract.AddQuiet(extractCommand);
}

}  // namespace vantry_tools
