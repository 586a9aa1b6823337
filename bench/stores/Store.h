#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/items.h"

// The keyed stores that are measured side by side, each used as its users do for speed without
// syncing: one transaction, prepared statements, a cache that holds the index. All have the same
// operations: Create, ReadOne, List, ReadAll, Replace and DiskBytes.

namespace stores {

inline void Require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

/// A new, empty folder for the files of one store, removed with it.
class Folder {
public:
    Folder() {
        std::string name =
            (std::filesystem::temp_directory_path() / "vantry-bench-XXXXXX").string();
        Require(mkdtemp(name.data()) != nullptr, "mkdtemp");
        path = name;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /// What its files take on the disk.
    std::uint64_t DiskBytes() const {
        std::uint64_t bytes = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
            struct stat status;
            Require(stat(entry.path().c_str(), &status) == 0, "stat");
            bytes += static_cast<std::uint64_t>(status.st_blocks) * 512;
        }
        return bytes;
    }

    std::filesystem::path path;
};

/// What a store in one file has in common with the others.
class InOneFile {
public:
    std::uint64_t DiskBytes() const { return folder.DiskBytes(); }

protected:
    Folder folder;
    std::string file = (folder.path / "store").string();
};

}  // namespace stores
