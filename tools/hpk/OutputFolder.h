#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tools/hpk/ConfinedFolder.h"

namespace vantry_tools {

/// A folder in which keys become files, and never outside of it.
class OutputFolder {
public:
    using Writer = std::function<void(int descriptor, const std::string& shown)>;

    /// Creates the folder, and those above it, where they are missing.
    explicit OutputFolder(const std::string& path);

    /// Has `write` write the file that `key` names. The file appears, or replaces a regular file,
    /// once it is complete. Whatever `write` throws is passed on; the existing file then remains.
    /// @throws RefusedPath if the key is no path below the folder or something is in the way
    void Write(const std::string& key, const Writer& write);

private:
    void Enter(std::string_view folder);

    const std::string root;
    ConfinedFolder folders;
    std::string currentPath;
    int current = -1;
    bool hasLeftovers = false;  // of killed processes, in the current folder
};

}  // namespace vantry_tools
