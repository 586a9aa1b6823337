#pragma once

#include <optional>
#include <string>

#include "tools/common/LongWork.h"

namespace vantry_tools {

/// The file of a package that a command creates. It appears in one step; what it replaces is locked
/// until then, so that no other program's change is lost.
///
///     NewPackage file(path, force, progress);
///     ...                                        // write to file.Path()
///     file.Commit();
class NewPackage {
public:
    /// @param force whether an existing file may be replaced
    /// @throws ToolFailure, SystemError
    NewPackage(const std::string& path, bool force, const CTProgress& progress);

    /// A path by which this process can open the new file.
    std::string Path() const { return file->Path(); }
    /// The descriptor of the file that is replaced, or -1.
    int Former() const { return former ? former->Descriptor() : -1; }

    /// @throws ToolFailure, SystemError; the path then names what it named before
    void Commit();

private:
    const std::string shown;
    std::optional<FileLock> former;
    std::optional<AtomicFile> file;
};

}  // namespace vantry_tools
