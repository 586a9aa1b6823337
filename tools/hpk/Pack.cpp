#include <cerrno>
#include <functional>

#include "tools/hpk/ChangePackage.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/ItemStore.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/NewPackage.h"
#include "tools/hpk/PackageFile.h"
#include "tools/hpk/Sources.h"

namespace vantry_tools {

namespace {

struct PackOptions : PackageOptions {
    std::vector<std::string> paths;
    bool force = false;
};

struct PutOptions : PackageOptions {
    KeyArguments words;
};

}  // namespace

static void Pack(Sources& sources, CTProgress& progress,
                 const std::function<void(const qtString& key, const SegBuf& body)>& store) {
    StartPhase(progress, "packing", sources.TotalSize(), Unit::bytes);
    SegBuf body;
    for (const Source& source : sources.Files()) {
        if (const FileDescriptor file = sources.Open(source)) {
            ReadBody(file.Get(), source.path, body, progress);
            store(source.key, body);
        }
    }
}

static void ReportSkipped(const Sources& sources, bool quiet) {
    for (const std::string& line : sources.Skipped()) {
        if (!quiet) {
            PrintError(line);
        }
    }
}

static void Create(const PackOptions& options) {
    Sources sources;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        const std::string& path = options.package;
        sources.Collect(options.paths, progress);
        NewPackage file(path, options.force, progress);
        if (file.Former() >= 0) {
            sources.Exclude(file.Former());
        }
        Hpack package;
        OnPackage(path, [&] { package.Open(file.Path(), 'w'); });
        Pack(sources, progress, [&](const qtString& key, const SegBuf& body) {
            OnPackage(path, [&] { package.AddAtOffset(key, body, 0); });
        });
        OnPackage(path, [&] { package.Close(); });
        StartPhase(progress, "saving", 0);
        StopIfInterrupted(progress);
        file.Commit();
    });
    ReportSkipped(sources, options.quiet);
}

static void Add(const PackOptions& options) {
    Sources sources;
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress& progress) {
        sources.Exclude(OpenRegular(options.package, O_RDONLY).Get());
        sources.Collect(options.paths, progress);
        ItemStore store(options.package, package);
        Pack(sources, progress,
             [&](const qtString& key, const SegBuf& body) { store.Put(key, body); });
    });
    ReportSkipped(sources, options.quiet);
}

static void ReadInput(const std::string& path, SegBuf& body) {
    CTProgress never;
    if (path.empty() || path == "-") {
        ReadBody(STDIN_FILENO, "standard input", body, never);
        return;
    }
    // Unlike a package, it may be anything that can be read.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        throw SystemError(errno, "cannot open", path);
    }
    ReadBody(file.Get(), path, body, never);
}

static void Put(const PutOptions& options) {
    KeyArguments words = options.words;
    const qtString key = words.TakeKey("KEY");
    const std::string file = words.TakeWord();
    words.RequireEnd();
    // Before anything else: a body that takes long to arrive must not lock the package, and Ctrl-C
    // still ends a read that waits.
    SegBuf body;
    ReadInput(file, body);
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress&) {
        ItemStore(options.package, package).Put(key, body);
    });
}

static CLI::Option& AddPaths(CLI::App& command, PackOptions& options) {
    options.AddQuiet(command);
    return *command.add_option("PATH", options.paths, "Folders and files to pack")->type_name("");
}

void AddPackCommands(CLI::App& app) {
    const auto [createCommand, create] = AddPackageCommand(
        app, "create", "Create a package from files",
        "Keys are paths relative to the folder PATH (stdio.h, linux/types.h), or the file's name.\n"
        "Only regular files are packed; skipped files are reported. Creation is atomic. Without\n"
        "a PATH the package is empty.\n"
        "\n"
        "Examples:\n"
        "  hpk create include.hpk /usr/include\n"
        "  hpk create --force letters.hpk a.txt b.txt",
        &Create);
    createCommand.alias("c");
    AddPaths(createCommand, create);
    createCommand.add_flag("-f,--force", create.force, "Replace an existing file");

    const auto [addCommand, add] = AddPackageCommand(
        app, "add", "Add or replace files in a package",
        "Keys are as for create. The change is made in a copy, which then replaces the package;\n"
        "other hard links to it keep the former version.\n"
        "\n"
        "Example:\n"
        "  hpk add include.hpk /usr/local/include",
        &Add);
    AddPaths(addCommand, add).required();

    const auto [putCommand, put] = AddPackageCommand(
        app, "put", "Add or replace one item",
        "The body is read from FILE, or else from standard input. The package must exist.\n"
        "\n"
        "Examples:\n"
        "  hpk put letters.hpk alpha alpha.txt\n"
        "  date | hpk put letters.hpk now\n"
        "  hpk put letters.hpk --number 7 seven.txt",
        &Put);
    put.words.AddTo(putCommand, "WORD", "KEY [FILE]; with --number just [FILE]");
    put.AddQuiet(putCommand);
}

}  // namespace vantry_tools
