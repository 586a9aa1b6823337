#include <cstdio>

#include "tools/common/AtomicFile.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/KeyArguments.h"
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

// Adds an item or replaces it, in its place where it fits.
static void Store(Hpack& package, const std::string& shown, const qtString& key,
                  const SegBuf& body) {
    OnPackage(shown, [&] {
        unsigned int offset = 0;
        unsigned int size = 0;
        package.GetKeyInfo(key, offset, size);
        package.AddAtOffset(key, body, body.size <= size ? offset : 0);
    });
}

static void StoreAll(Hpack& package, const std::string& shown, Sources& sources,
                     CTProgress& progress) {
    StartPhase(progress, "packing", sources.Files().size());
    SegBuf body;
    for (const Source& source : sources.Files()) {
        if (sources.Read(source, body, progress)) {
            Store(package, shown, source.key, body);
        }
        progress.Increment(1);
    }
}

static void ReportSkipped(const Sources& sources, bool quiet) {
    for (const std::string& line : sources.Skipped()) {
        if (!quiet) {
            PrintError(line);
        }
    }
}

// The package that --force replaces may lie in a folder that is packed.
static void LeaveOutFormer(Sources& sources, const std::string& path) {
    const FileDescriptor former(open(path.c_str(), O_PATH | O_CLOEXEC));
    if (former) {
        sources.Exclude(former.Get());
    }
}

static void Create(const PackOptions& options) {
    Sources sources;
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        // Before there is a new file, which may lie in a folder that is packed.
        sources.Collect(options.paths, progress);
        const std::string& path = options.package;
        AtomicFile file(
            path, options.force ? AtomicFile::Existing::replace : AtomicFile::Existing::refuse);
        LeaveOutFormer(sources, path);
        Hpack package;
        OnPackage(path, [&] { package.Open(file.Path(), 'w'); });
        StoreAll(package, path, sources, progress);
        OnPackage(path, [&] { package.Close(); });
        StartPhase(progress, "saving", 0);
        StopIfInterrupted(progress);
        file.Commit();
    });
    ReportSkipped(sources, options.quiet);
}

static void Add(const PackOptions& options) {
    Sources sources;
    const LockedPackage original(options.package);
    sources.Exclude(original.Descriptor());
    // Before there is a copy, which may lie in a folder that is packed.
    RunLongWork(options.quiet,
                [&](CTProgress& progress) { sources.Collect(options.paths, progress); });
    ChangePackage(original, options.quiet, [&](Hpack& package, CTProgress& progress) {
        StoreAll(package, options.package, sources, progress);
    });
    ReportSkipped(sources, options.quiet);
}

static void ReadInput(const std::string& path, SegBuf& body) {
    const CTProgress never;
    if (path.empty() || path == "-") {
        ReadBody(STDIN_FILENO, "standard input", body, never);
        return;
    }
    // What is named may be anything that can be read.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        throw SystemFailure("cannot open", path, errno);
    }
    ReadBody(file.Get(), path, body, never);
}

static void Put(const PutOptions& options) {
    KeyArguments words = options.words;
    const qtString key = words.TakeKey("KEY");
    const std::string file = words.TakeWord();
    words.RequireEnd();
    // First of all, while Ctrl-C still ends even a read that waits: nothing has been begun.
    SegBuf body;
    ReadInput(file, body);
    ChangePackage(LockedPackage(options.package), options.quiet,
                  [&](Hpack& package, CTProgress&) { Store(package, options.package, key, body); });
}

static CLI::Option& AddPaths(CLI::App& command, PackOptions& options) {
    options.AddQuiet(command);
    return *command.add_option("PATH", options.paths, "Folders and files to pack")->type_name("");
}

void AddPackCommands(CLI::App& app) {
    const auto [createCommand, create] = AddPackageCommand(
        app, "create", "Make a package of the files in folders",
        "A folder gives keys relative to itself (stdio.h, linux/types.h), a file gives its name.\n"
        "Only regular files go in; what is skipped is said. The package appears when it is whole.\n"
        "Without a PATH it is empty.\n"
        "\n"
        "Examples:\n"
        "  hpk create include.hpk /usr/include\n"
        "  hpk create --force letters.hpk a.txt b.txt",
        &Create);
    createCommand.alias("c");
    AddPaths(createCommand, create);
    createCommand.add_flag("-f,--force", create.force, "Replace an existing file");

    const auto [addCommand, add] = AddPackageCommand(
        app, "add", "Add files to a package, or replace them in it",
        "Keys are made as by create. The work is done on a copy, which takes the package's place\n"
        "at the end; links to the package by other names keep the old one.\n"
        "\n"
        "Example:\n"
        "  hpk add include.hpk /usr/local/include",
        &Add);
    AddPaths(addCommand, add).required();

    const auto [putCommand, put] = AddPackageCommand(
        app, "put", "Add or replace one item",
        "The body comes from FILE, without it from standard input. The package must exist.\n"
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
