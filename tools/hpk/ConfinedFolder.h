#pragma once

#include <string>
#include <string_view>

#include "tools/common/Failures.h"
#include "tools/common/System.h"

namespace vantry_tools {

/// A path leads out of a folder, or something is in the way; the text says what.
class RefusedPath : public ToolFailure {
public:
    RefusedPath(const std::string& reason, int systemError = 0)
        : ToolFailure(reason), number(systemError) {}
    /// Returns the system's error number, or 0; ELOOP for a link.
    int Number() const { return number; }

private:
    const int number;
};

/// The folders below a root, without its outside: each step down starts at an open folder and
/// follows no link, whatever others change there meanwhile.
class ConfinedFolder {
public:
    enum class Missing { fail, create };

    ConfinedFolder() = default;
    ConfinedFolder(FileDescriptor rootFolder, Missing missingFolders)
        : root(std::move(rootFolder)), missing(missingFolders) {}

    /// Opens a folder below the root. The last one stays open, so that its neighbors and what is
    /// below it are reached in few steps.
    /// @param path ends with a slash; empty for the root
    /// @return its descriptor, which is valid until the next call
    /// @throws RefusedPath
    int Enter(std::string_view path);

private:
    FileDescriptor Step(int folder, const std::string& name) const;

    FileDescriptor root;
    Missing missing = Missing::fail;
    std::string currentPath;
    FileDescriptor current;
};

}  // namespace vantry_tools
