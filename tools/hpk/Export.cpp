#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "tools/common/KeyText.h"
#include "tools/common/System.h"
#include "tools/hpk/Archive.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/KeyArguments.h"
#include "tools/hpk/KeyPath.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct ExportOptions : PackageOptions {
    std::string archive = "-";
    KeyChoice choice;
};

// Makes files in an archive of a package's items.
class Export {
public:
    explicit Export(const ExportOptions& exportOptions)
        : options(exportOptions), reader(options.package), choice(options.choice) {
        reader.RequireIndex();
        reader.RequireNoOverlap();
        keys = choice.Choose(reader.Keys());
    }

    void Run(int descriptor, CTProgress& progress) {
        StartPhase(progress, "exporting", keys.size());
        ArchiveWriter archive(descriptor, options.archive, ModificationTime());
        for (const qtString& key : keys) {
            StopIfInterrupted(progress);
            Write(archive, key, progress);
            Advance(progress, 1);
        }
        archive.Finish();
    }

    /// @throws ReportedFailure if an item is not in the archive, after naming it
    void Report() const {
        for (const std::string& failure : failures) {
            PrintError(failure);
        }
        choice.FailIfUnused(options.package);
        if (!failures.empty()) {
            throw ReportedFailure();
        }
    }

private:
    // Items have no times. With the package's, the same package makes the same archive.
    std::time_t ModificationTime() const {
        struct stat status;
        return stat(options.package.c_str(), &status) == 0 ? status.st_mtime : 0;
    }

    // Once extracted, the file of one item would stand where another needs a folder.
    const qtString* ItemInTheWay(const qtString& key) const {
        for (std::size_t at = key.find('/'); at != qtString::npos; at = key.find('/', at + 1)) {
            const auto found = std::lower_bound(keys.begin(), keys.end(), key.substr(0, at));
            if (found != keys.end() && key.compare(0, at, *found) == 0) {
                return &*found;
            }
        }
        return nullptr;
    }

    void Refuse(const qtString& key, const std::string& reason) {
        failures.push_back("not exported: " + QuoteKey(key) + ": " + reason);
    }

    void Write(ArchiveWriter& archive, const qtString& key, const CTProgress& progress) {
        if (const char* const reason = WhyNotPath(key)) {
            Refuse(key, reason);
        } else if (const qtString* const item = ItemInTheWay(key)) {
            Refuse(key, "the item " + QuoteKey(*item) + " is in the way");
        } else if (!archive.Holds(key)) {
            Refuse(key, "a zip file holds names in UTF-8 alone");
        } else {
            WriteBody(archive, key, progress);
        }
    }

    // The entry begins only once the item has been found to be undamaged.
    void WriteBody(ArchiveWriter& archive, const qtString& key, const CTProgress& progress) {
        bool begun = false;
        try {
            const std::uint32_t size = reader.Find(key).size;
            const auto begin = [&] {
                if (!begun) {
                    archive.BeginFile(key, size);
                    begun = true;
                }
            };
            reader.Read(key, [&](const char* data, std::size_t count) {
                StopIfInterrupted(progress);
                begin();
                archive.Write(data, count);
            });
            begin();
        } catch (const PackageFailure& failure) {
            if (begun) {
                throw;
            }
            failures.emplace_back(failure.what());
        }
    }

    const ExportOptions& options;
    PackageReader reader;
    KeyChoice choice;
    std::vector<qtString> keys;
    std::vector<std::string> failures;
};

}  // namespace

static void ExportItems(const ExportOptions& options) {
    if (!ArchiveWriter::IsKnownName(options.archive)) {
        throw UsageFailure(
            "the archive must end in .tar, .tar.gz, .tgz, .tar.bz2, .tar.xz, "
            ".tar.zst or .zip, or be -: " +
            options.archive);
    }
    Export items(options);
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        if (options.archive == "-") {
            items.Run(STDOUT_FILENO, progress);
        } else {
            AtomicFile file(options.archive, AtomicFile::Existing::replace);
            items.Run(file.Descriptor(), progress);
            file.Commit();
        }
    });
    items.Report();
}

void AddExportCommands(CLI::App& app) {
    const auto [exportCommand, items] = AddPackageCommand(
        app, "export", "Write items as the files of an archive",
        "The suffix of FILE selects the format: tar, optionally compressed by gzip,\n"
        "bzip2, xz or zstd, or zip; - is tar on standard output. An existing FILE is\n"
        "replaced. Keys that extract refuses are refused; the rest is exported.\n"
        "\n"
        "Examples:\n"
        "  hpk export include.hpk | tar t\n"
        "  hpk export include.hpk linux.zip 'linux/*'",
        &ExportItems);
    exportCommand.add_option("FILE", items.archive, "The archive; - is standard output")
        ->type_name("");
    items.choice.AddTo(exportCommand, "GLOB", "The items to export instead of all");
    items.AddQuiet(exportCommand);
}

}  // namespace vantry_tools
