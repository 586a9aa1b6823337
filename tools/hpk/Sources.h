#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/LongWork.h"
#include "tools/hpk/ConfinedFolder.h"
#include "tools/hpk/ItemStore.h"

namespace vantry_tools {

/// A file that becomes an item.
struct Source {
    std::string key;
    std::string path;    ///< as the user knows it
    std::uint64_t size;  ///< when it was found
    std::size_t root;    ///< of Sources::roots
};

/// Which files become items, and how their keys are made.
struct SourceRules {
    /// Globs of keys, or of names without folders. A folder that matches is not entered.
    std::vector<std::string> excluded;
    /// Keys are the paths as given, instead of relative to the path that named them.
    bool keepsPaths = false;
};

/// The regular files that a command's paths name, in key order. A folder stands for all files below
/// it, with keys relative to it; a file for itself, by its name. Only the paths themselves may be
/// links. Below them no link is followed, not even one that appears while the files are read.
class Sources {
public:
    explicit Sources(SourceRules sourceRules = {}) : rules(std::move(sourceRules)) {}

    /// @throws SystemError for what cannot be read
    /// @throws ToolFailure for two files with one key, for files that no package can hold, and for
    ///         a path that is to be kept and names no file below a folder
    void Collect(const std::vector<std::string>& paths, CTProgress& progress);

    /// Leaves a file out that may be found all the same: the package itself.
    void Exclude(int descriptor);

    const std::vector<Source>& Files() const { return files; }
    std::uint64_t TotalSize() const;

    /// Opens a file. @return no file if it is to be skipped, which has then been noted
    FileDescriptor Open(const Source& source);

    /// One line for each file that was not packed, with the reason.
    const std::vector<std::string>& Skipped() const { return skipped; }

private:
    struct Root {
        std::string path;
        std::string keyPrefix;  // of what is below; empty, or ends with a slash
        bool isFolder;
        std::pair<dev_t, ino_t> identity;
    };

    void Walk(const std::string& folder, const CTProgress& progress);
    void Take(int folder, const std::string& below, const CTProgress& progress);
    bool IsExcluded(const std::string& key) const;
    int Enter(std::size_t root, const std::string& folder);
    void Skip(const std::string& path, const std::string& why);
    void RejectDuplicates() const;

    const SourceRules rules;
    std::vector<Root> roots;
    std::vector<Source> files;
    std::vector<std::string> skipped;
    std::vector<std::pair<dev_t, ino_t>> excluded;
    ConfinedFolder folders;  // of one root
    std::size_t entered = SIZE_MAX;
};

/// Reads a body from a file, which must stay open, as a part of long work.
/// @throws ToolFailure that names `shown` if the file is too large for any package; before it is
///         read, if its size is known
PieceReader ReadFrom(int descriptor, const std::string& shown, CTProgress& progress);

}  // namespace vantry_tools
