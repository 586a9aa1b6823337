#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

#include "tools/hpk/ChangePackage.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/ItemStore.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/NewPackage.h"
#include "tools/hpk/PackageFile.h"
#include "tools/hpk/SourceOptions.h"

namespace vantry_tools {

namespace {

struct PackOptions : PackageOptions {
    SourceOptions sources;
    bool force = false;
};

struct PutOptions : PackageOptions {
    KeyArguments words;
};

}  // namespace

static void Pack(Sources& sources, const std::string& package, ItemStore& store,
                 CTProgress& progress) {
    StartPhase(progress, "packing", sources.TotalSize(), Unit::bytes);
    for (const Source& source : sources.Files()) {
        if (const FileDescriptor file = sources.Open(source)) {
            const PieceReader read = ReadFrom(file.Get(), source.path, progress);
            OnPackage(package, [&] { store.Put(source.key, read); });
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
    Sources sources(options.sources.Rules());
    const std::vector<std::string> paths = options.sources.Paths(false);
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        const std::string& path = options.package;
        sources.Collect(paths, progress);
        NewPackage file(path, options.force, progress);
        if (file.Former() >= 0) {
            sources.Exclude(file.Former());
        }
        Hpack package;
        OnPackage(path, [&] { package.Open(file.Path(), 'w'); });
        ItemStore store(package);
        Pack(sources, path, store, progress);
        OnPackage(path, [&] { package.Close(); });
        StartPhase(progress, "saving", 0);
        StopIfInterrupted(progress);
        file.Commit();
    });
    ReportSkipped(sources, options.quiet);
}

static void Add(const PackOptions& options) {
    Sources sources(options.sources.Rules());
    const std::vector<std::string> paths = options.sources.Paths(true);
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress& progress) {
        sources.Exclude(OpenRegular(options.package, O_RDONLY).Get());
        sources.Collect(paths, progress);
        ItemStore store(options.package, package);
        Pack(sources, options.package, store, progress);
    });
    ReportSkipped(sources, options.quiet);
}

// The body for put. A pipe may take long to deliver it: it is read before the package is locked,
// and while Ctrl-C still ends even a read that waits.
class Input {
public:
    Input(const std::string& path, const std::string& package) {
        if (path.empty() || path == "-") {
            shown = "standard input";
            file = FileDescriptor(dup(STDIN_FILENO));
        } else {
            // Unlike a package, it may be anything that can be read.
            shown = path;
            file = FileDescriptor(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
        }
        struct stat status;
        if (!file || fstat(file.Get(), &status) != 0) {
            throw SystemError(errno, "cannot open", shown);
        }
        if (!S_ISREG(status.st_mode)) {
            Spool(package);
        }
    }

    PieceReader Reader(CTProgress& progress) const { return ReadFrom(file.Get(), shown, progress); }

private:
    // Reads all of it into a file without a name.
    void Spool(const std::string& package) {
        const std::string folder = package.substr(0, package.rfind('/') + 1);
        FileDescriptor spool(
            open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
        if (!spool) {  // a folder or file system without such files
            spool = FileDescriptor(memfd_create("body", MFD_CLOEXEC));
        }
        CTProgress never;
        const PieceReader read = Reader(never);
        std::vector<char> piece(std::size_t{256} * 1024);
        while (const std::size_t count = read(piece.data(), piece.size())) {
            WriteAll(spool.Get(), piece.data(), count, shown);
        }
        if (lseek(spool.Get(), 0, SEEK_SET) != 0) {
            throw SystemError(errno, "cannot read", shown);
        }
        file = std::move(spool);
    }

    std::string shown;
    FileDescriptor file;
};

static void Put(const PutOptions& options) {
    KeyArguments words = options.words;
    const qtString key = words.TakeKey("KEY");
    const std::string path = words.TakeWord();
    words.RequireEnd();
    const Input input(path, options.package);
    ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress& progress) {
        ItemStore(options.package, package).Put(key, input.Reader(progress));
    });
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
        "  hpk create --force letters.hpk a.txt b.txt\n"
        "  git ls-files -z | hpk create src.hpk --paths --files-from - -0",
        &Create);
    createCommand.alias("c");
    create.sources.AddTo(createCommand);
    create.AddQuiet(createCommand);
    createCommand.add_flag("-f,--force", create.force, "Replace an existing file");

    const auto [addCommand, add] = AddPackageCommand(
        app, "add", "Add or replace files in a package",
        "Keys are as for create. The change is made in a copy, which then replaces the package;\n"
        "other hard links to it keep the former version.\n"
        "\n"
        "Example:\n"
        "  hpk add include.hpk /usr/local/include",
        &Add);
    add.sources.AddTo(addCommand);
    add.AddQuiet(addCommand);

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
