#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tools/common/Failures.h"
#include "tools/common/FileDescriptor.h"

namespace vantry_tools {

/// A key does not become a file; the text says why.
class RefusedPath : public ToolFailure {
public:
    using ToolFailure::ToolFailure;
};

/// A folder that keys become files in, and never beside it: each step on the way down is made on
/// an open folder and follows no link, whatever others do in there meanwhile.
class OutputFolder {
public:
    using Writer = std::function<void(int descriptor, const std::string& shown)>;

    /// Makes the folder, and those above it, where they are not there.
    explicit OutputFolder(const std::string& path);

    /// Has `write` write the file that `key` names. It appears, or replaces a regular file, when
    /// it is whole; whatever `write` throws passes through and leaves what was there.
    /// @throws RefusedPath for keys that are no paths below the folder, and where something is in
    ///         the way
    void Write(const std::string& key, const Writer& write);

private:
    class Temporary;

    void Enter(std::string_view folder);
    FileDescriptor Step(int folder, const std::string& name) const;

    const std::string root;
    FileDescriptor rootFolder;
    // The folder of the last file: keys come in order, so the next one is often in it, too.
    std::string currentPath;
    FileDescriptor currentFolder;
};

}  // namespace vantry_tools
