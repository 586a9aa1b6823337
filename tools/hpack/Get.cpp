#include <sys/stat.h>

#include <memory>
#include <optional>

#include "tools/common/KeyText.h"
#include "tools/common/NewFile.h"
#include "tools/hpack/Commands.h"
#include "tools/hpack/KeyWords.h"
#include "tools/hpack/OutputFolder.h"
#include "tools/hpack/PackageFile.h"

namespace {

struct GetOptions : PackageOptions {
    KeyWords words;
    std::string output;
};

struct ExtractOptions : PackageOptions {
    KeyChoice choice;
    std::string folder = ".";
};

}  // namespace

static void WriteBody(PackageReader& reader, const qtString& key, int descriptor,
                      const std::string& shown) {
    reader.Read(key, [&](const char* data, std::size_t count) {
        WriteAll(descriptor, data, count, shown);
    });
}

// A device or a FIFO is written to as it is.
static bool TakesBytesDirectly(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

static void GetToFile(PackageReader& reader, const qtString& key, const GetOptions& options) {
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        constexpr unsigned int unit = 1024;
        StartPhase(progress, "getting", reader.Find(key).size / unit);
        NewFile file(options.output, NewFile::Existing::replace);
        reader.Read(key, [&](const char* data, std::size_t count) {
            StopIfInterrupted(progress);
            WriteAll(file.Descriptor(), data, count, options.output);
            progress.Increment(static_cast<unsigned int>(count / unit));
        });
        file.Commit();
    });
}

static void Get(const GetOptions& options) {
    KeyWords words = options.words;
    const qtString key = words.TakeKey("KEY");
    words.RequireEnd();
    PackageReader reader(options.package);
    const std::string& output = options.output;
    if (output.empty() || output == "-") {
        WriteBody(reader, key, STDOUT_FILENO, "standard output");
    } else if (TakesBytesDirectly(output)) {
        const FileDescriptor file(open(output.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
        if (!file) {
            throw SystemFailure("cannot open", output, errno);
        }
        WriteBody(reader, key, file.Get(), output);
    } else {
        GetToFile(reader, key, options);
    }
}

static std::optional<std::string> ExtractItem(PackageReader& reader, const qtString& key,
                                              OutputFolder& folder, const CTProgress& progress) {
    try {
        folder.Write(key, [&](int descriptor, const std::string& shown) {
            reader.Read(key, [&](const char* data, std::size_t count) {
                StopIfInterrupted(progress);
                WriteAll(descriptor, data, count, shown);
            });
        });
        return std::nullopt;
    } catch (const RefusedPath& refusal) {
        return "not extracted: " + QuoteKey(key) + ": " + refusal.what();
    } catch (const PackageFailure& failure) {
        return failure.what();
    }
}

static void Extract(const ExtractOptions& options) {
    PackageReader reader(options.package);
    KeyChoice choice = options.choice;
    const std::vector<qtString> keys = choice.Choose(reader.Keys());
    std::vector<std::string> failures;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        StartPhase(progress, "extracting", keys.size());
        OutputFolder folder(options.folder);
        for (const qtString& key : keys) {
            StopIfInterrupted(progress);
            if (auto failure = ExtractItem(reader, key, folder, progress)) {
                failures.push_back(std::move(*failure));
            }
            progress.Increment(1);
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

void AddGetCommands(CLI::App& app) {
    const auto get = std::make_shared<GetOptions>();
    CLI::App& getCommand = AddCommand(app, "get", "Write the body of one item to standard output",
                                      "Examples:\n"
                                      "  hpack get include.hpk sys/types.h | less\n"
                                      "  hpack get include.hpk sys/types.h -o types.h",
                                      &Get, get);
    get->words.AddTo(getCommand, "KEY", "The item");
    getCommand.add_option("-o,--output", get->output, "Write to this file, or over it")
        ->type_name("FILE");
    get->AddQuiet(getCommand);

    const auto extract = std::make_shared<ExtractOptions>();
    CLI::App& extractCommand = AddCommand(
        app, "extract", "Write items to files below a folder",
        "Keys are paths below the folder. Those that would lead out of it, by themselves or over "
        "a\n"
        "link, are refused by name; the rest is extracted. Existing files are replaced.\n"
        "\n"
        "Examples:\n"
        "  hpack extract include.hpk -C copy\n"
        "  hpack extract include.hpk 'sys/*.h'",
        &Extract, extract);
    extract->choice.AddTo(extractCommand, "GLOB", "The items to extract instead of all");
    extractCommand
        .add_option("-C,--directory", extract->folder,
                    "The folder, which is made if need be; without it the current one")
        ->type_name("DIR");
    extract->AddQuiet(extractCommand);
}
