#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "VexUnix/VexRegistryUnix.h"
#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"
#include "tools/common/System.h"
#include "tools/vexreg/Commands.h"
#include "tools/vexreg/Records.h"

namespace vantry_tools {

namespace {

struct ExportOptions {
    std::string file;
    RecordChoice choice;
};

struct ImportOptions {
    std::string file;
    bool dryRun = false;
};

// A folder that a helper process removes once this process is finished with it, or has ended, in
// whatever way.
class ScratchFolder {
public:
    ScratchFolder() {
        int ends[2] = {-1, -1};
        const bool made = pipe2(ends, O_CLOEXEC) == 0 && mkdtemp(path.data()) != nullptr;
        const int error = errno;
        const FileDescriptor end(ends[0]);
        lifeline = FileDescriptor(ends[1]);
        if (!made) {
            throw SystemError(error, "cannot create", path);
        }
        remover = fork();
        if (remover == 0) {
            setsid();  // signals that stop the tool must not stop it
            lifeline = FileDescriptor();
            char none;
            while (read(end.Get(), &none, 1) < 0 && errno == EINTR) {
            }
            Remove();
            _exit(exitDone);
        }
    }
    ~ScratchFolder() {
        lifeline = FileDescriptor();
        waitpid(remover, nullptr, 0);
        Remove();  // in case there was no helper process
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& Path() const { return path; }

private:
    void Remove() const {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    std::string path = std::filesystem::temp_directory_path() / "vexregXXXXXX";
    FileDescriptor lifeline;
    pid_t remover = -1;
};

// An empty registry in a scratch folder, which this process uses during the object's life.
class ScratchRegistry {
public:
    ScratchRegistry() {
        const char* const set = std::getenv(variable);
        wasSet = set != nullptr;
        former = wasSet ? set : "";
        setenv(variable, (folder.Path() + "/registry").c_str(), 1);
    }
    ~ScratchRegistry() { wasSet ? setenv(variable, former.c_str(), 1) : unsetenv(variable); }
    ScratchRegistry(const ScratchRegistry&) = delete;
    ScratchRegistry& operator=(const ScratchRegistry&) = delete;

private:
    static constexpr const char* variable = "BASEKIT_REGISTRY";
    const ScratchFolder folder;
    std::string former;
    bool wasSet = false;
};

}  // namespace

// What import makes of an exported text. It may well stop early, which is no failure here.
static Records ReadBack(const std::string& text) {
    const ScratchRegistry scratch;
    CvexRegEdit editor;
    const std::string file = UnixRegistry::DatabasePath() + ".txt";
    PrintTo(file, [&] { PrintSafely(text); });
    editor.Import(file.c_str());
    if (!UnixRegistry::LastError().empty()) {
        throw ToolFailure(editor.m_strMessage + " (" + UnixRegistry::LastError() + ")");
    }
    UnixRegistry store;
    OpenExisting(store);
    return ReadRecords(store);
}

// One line can spoil the others: NUL ends the text for import, and the part of a value after a line
// end may be the line of another key. So import itself decides.
static void WarnOfLosses(const Records& records, const std::string& text) {
    Records readBack;
    try {
        readBack = ReadBack(text);
    } catch (const std::exception& error) {
        throw ToolFailure(std::string("cannot check what will read back the same: ") +
                          error.what());
    }
    std::size_t count = 0;
    for (const auto& [key, value] : records) {
        const auto found = readBack.find(key);
        if (found == readBack.end() || found->second != value) {
            PrintError("will not read back the same: " + QuoteKey(key));
            ++count;
        }
    }
    if (count != 0) {
        PrintError(std::to_string(count) +
                   " of the exported records will not read back the same; "
                   "\"vexreg dump\" keeps all");
    }
}

static void Export(const ExportOptions& options) {
    UnixRegistry store;
    OpenExisting(store);
    const Records all = ReadRecords(store);
    Records records;
    std::string text;
    for (const auto& [key, value] : options.choice.Choose(all)) {
        if (!CvexRegEdit::IsPasswordKey(key)) {
            text.append(key).append(" ").append(value).append("\n");
            records.emplace(key, value);
        }
    }
    PrintTo(options.file, [&] { PrintSafely(text); });
    PrintError("exported " + std::to_string(records.size()) + " keys");
    WarnOfLosses(records, text);
    if (!options.choice.AllSelect(all, "no such key")) {
        throw ReportedFailure();
    }
}

// Why a file cannot be imported at all; empty if it can.
static std::string Obstacle(const std::string& file) {
    std::error_code unknown;
    if (access(file.c_str(), R_OK) != 0) {
        return std::strerror(errno);
    }
    if (std::filesystem::is_directory(file, unknown)) {
        return std::strerror(EISDIR);
    }
    return std::filesystem::file_size(file, unknown) == 0 ? "it is empty" : "";
}

static void ImportFrom(const std::string& file, CvexRegEdit& editor) {
    const std::string path = file == "-" ? "/dev/stdin" : file;
    const std::string obstacle = Obstacle(path);
    if (editor.Import(path.c_str())) {
        return;
    }
    if (!obstacle.empty()) {
        throw ToolFailure(editor.m_strMessage + " (" + obstacle + ")");
    }
    const qtString cause = UnixRegistry::LastError();
    throw ToolFailure(file + ": " + editor.m_strMessage +
                      (cause.empty() ? "" : " (" + cause + ")"));
}

// The effect of the lines is what they leave in an empty registry.
static void ShowImport(const std::string& file) {
    Records wanted;
    std::string failure;
    {
        const ScratchRegistry scratch;
        CvexRegEdit editor;
        try {
            ImportFrom(file, editor);
        } catch (const ToolFailure& error) {
            failure = error.what();
        }
        UnixRegistry store;
        OpenExisting(store);
        wanted = ReadRecords(store);
    }
    PrintChanges(wanted);
    if (!failure.empty()) {
        throw ToolFailure(failure);
    }
}

static void Import(const ImportOptions& options) {
    if (options.dryRun) {
        ShowImport(options.file);
        return;
    }
    CvexRegEdit editor;
    ImportFrom(options.file, editor);
    std::puts(editor.m_strMessage.c_str());
}

void AddTransferCommands(CLI::App& app) {
    const auto [exportCommand, exporting] = AddCommand(
        app, "export", "Write records, except passwords, as lines of text",
        "Each line has a key, a space and a value. Records that import would lose or\n"
        "change are reported on standard error: line ends, NUL, white space at the ends\n"
        "of a value or in a key, which may spoil other lines too. \"vexreg dump\" keeps\n"
        "everything. With KEY words, only those records are written: keys, prefixes that\n"
        "end in a slash, patterns with *, ? or [.\n"
        "\n"
        "Examples:\n"
        "  vexreg export registry.txt\n"
        "  vexreg export - Pop/ | sort",
        &Export);
    exportCommand
        .add_option("FILE", exporting.file, "The file to write; it appears when it is complete")
        ->type_name("")
        ->default_str("standard output");
    exporting.choice.AddTo(exportCommand, "The records to write");

    const auto [importCommand, importing] =
        AddCommand(app, "import", "Store the lines of a file that export wrote",
                   "A bad line stops the import; the lines before it are stored.\n"
                   "\n"
                   "Examples:\n"
                   "  vexreg import --dry-run registry.txt\n"
                   "  vexreg import registry.txt",
                   &Import);
    AddPositional(importCommand, "FILE", importing.file, "The file to read; - for standard input");
    importCommand.add_flag("--dry-run", importing.dryRun,
                           "Only show what would be added, changed and kept");
}

}  // namespace vantry_tools
