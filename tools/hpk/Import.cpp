#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <optional>
#include <set>

#include "tools/common/KeyText.h"
#include "tools/hpk/Archive.h"
#include "tools/hpk/ChangePackage.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/ItemStore.h"
#include "tools/hpk/KeyPath.h"
#include "tools/hpk/NewPackage.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct ImportOptions : PackageOptions {
    std::string archive = "-";
};

// Makes items of an archive's entries.
class Import {
public:
    explicit Import(const ImportOptions& importOptions) : options(importOptions) {}

    /// @param path of the package before the import
    void Run(const std::string& path, Hpack& package, CTProgress& progress) {
        store.emplace(path, package);
        StartPhase(progress, "importing", 0);
        ArchiveReader archive(options.archive, progress);
        shown = archive.Shown();
        ArchiveReader::Entry entry;
        while (archive.Next(entry)) {
            Take(archive, entry);
            Advance(progress, 1);
        }
        for (const std::string& folder : folders) {
            if (!folder.empty() && filled.count(folder) == 0) {
                ++lost["empty folders"];
            }
        }
    }

    /// Reports what was refused, and in one line what packages do not hold.
    /// @throws ReportedFailure if something was refused
    void Report() const {
        std::string line;
        for (const auto& [what, count] : lost) {
            line += (line.empty() ? "" : ", ") + what + " (" + std::to_string(count) + ')';
        }
        if (!line.empty() && !options.quiet) {
            PrintError(shown + ": not kept: " + line);
        }
        for (const std::string& refusal : refused) {
            PrintError(refusal);
        }
        if (!refused.empty()) {
            throw ReportedFailure();
        }
    }

private:
    // tar writes "./a" for what it found in the folder ".", and "a/" for a folder.
    static std::string KeyOf(std::string name) {
        while (name.compare(0, 2, "./") == 0) {
            name.erase(0, std::max<std::size_t>(2, name.find_first_not_of('/', 2)));
        }
        while (name.size() > 1 && name.back() == '/') {
            name.pop_back();
        }
        return name == "." ? "" : name;
    }

    void Take(ArchiveReader& archive, const ArchiveReader::Entry& entry) {
        const std::string key = KeyOf(entry.name);
        using Kind = ArchiveReader::Kind;
        switch (entry.kind) {
            case Kind::folder:
                folders.insert(key);
                FillParents(key);
                return;
            case Kind::symbolicLink:
                FillParents(key);
                ++lost["symbolic links"];
                return;
            case Kind::other:
                FillParents(key);
                ++lost["devices, pipes and the like"];
                return;
            default:
                break;
        }
        if (const char* const reason = WhyNotPath(key)) {
            Refuse(key, reason);
        } else if (entry.kind == Kind::file) {
            PutBody(archive, key);
            Stored(key, entry);
        } else if (const std::string target = KeyOf(entry.linkTarget); taken.count(target) == 0) {
            Refuse(key, "a hard link to " + QuoteKey(target) + ", which is not in the archive");
        } else {
            if (entry.hasOwnData) {
                PutBody(archive, target);
            }
            OnPackage(options.package, [&] { store->Copy(target, key); });
            ++lost["hard links, now copies"];
            Stored(key, entry);
        }
    }

    void PutBody(ArchiveReader& archive, const std::string& key) {
        OnPackage(options.package, [&] {
            store->Put(key,
                       [&](char* data, std::size_t count) { return archive.Read(data, count); });
        });
    }

    void Refuse(const std::string& key, const std::string& reason) {
        refused.push_back("not imported: " + QuoteKey(key) + ": " + reason);
    }

    static std::string ParentOf(const std::string& key) {
        const std::size_t slash = key.rfind('/');
        return slash == std::string::npos ? std::string() : key.substr(0, slash);
    }

    void FillParents(const std::string& key) {
        for (std::string folder = ParentOf(key); filled.insert(folder).second;) {
            folder = ParentOf(folder);
        }
    }

    void Stored(const std::string& key, const ArchiveReader::Entry& entry) {
        taken.insert(key);
        FillParents(key);
        constexpr unsigned int exported = 0644;
        if (entry.permissions != exported) {
            ++lost["modes other than 0644"];
        }
        if (entry.hasForeignOwner) {
            ++lost["owners other than root"];
        }
        if (entry.hasAttributes) {
            ++lost["extended attributes"];
        }
    }

    const ImportOptions& options;
    std::optional<ItemStore> store;
    std::string shown;
    std::set<std::string> taken;
    std::set<std::string> folders;
    std::set<std::string> filled;  // folders that need no mention
    std::map<std::string, std::uint64_t> lost;
    std::vector<std::string> refused;
};

}  // namespace

// The package is opened again after it was created: in an archive, a later version of a file may
// follow, and hard links, for which items must be readable.
static void ImportToNew(const ImportOptions& options, Import& import) {
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        const std::string& path = options.package;
        NewPackage file(path, false, progress);
        Hpack package;
        OnPackage(path, [&] {
            package.Open(file.Path(), 'w');
            package.Close();
            package.Open(file.Path(), 'u');
        });
        import.Run(file.Path(), package, progress);
        OnPackage(path, [&] { package.Close(); });
        StartPhase(progress, "saving", 0);
        StopIfInterrupted(progress);
        file.Commit();
    });
}

static void ImportArchive(const ImportOptions& options) {
    Import import(options);
    struct stat status;
    if (stat(options.package.c_str(), &status) != 0 && errno == ENOENT) {
        ImportToNew(options, import);
    } else {
        ChangePackage(options.package, options.quiet, [&](Hpack& package, CTProgress& progress) {
            import.Run(options.package, package, progress);
        });
    }
    import.Report();
}

void AddImportCommands(CLI::App& app) {
    const auto [importCommand, import] = AddPackageCommand(
        app, "import", "Add the files of an archive to a package",
        "The archive is tar, cpio or zip, compressed or not; - is standard input.\n"
        "PKG is created if it does not exist. Names become keys. Names that extract\n"
        "would refuse are refused; the rest is imported. Modes, owners, times and links\n"
        "are not kept. A broken archive changes nothing.\n"
        "\n"
        "Examples:\n"
        "  hpk import site.hpk site.zip\n"
        "  tar c include | hpk import include.hpk",
        &ImportArchive);
    importCommand.add_option("ARCHIVE", import.archive, "The archive; - is standard input")
        ->type_name("");
    import.AddQuiet(importCommand);
}

}  // namespace vantry_tools
