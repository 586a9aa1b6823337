#pragma once

#include <sys/types.h>

#include <string>

#include "tools/common/FileDescriptor.h"

namespace vantry_tools {

/// A file that is built beside its target and takes the target's name when it is whole:
///
///     AtomicFile file("a.txt", AtomicFile::Existing::replace);
///     ...                                 // write to file.Descriptor(), or to file.Path()
///     file.Commit();
///
/// Without Commit() the new file is removed and the target is what it was. A target that is a link
/// stays one: the file that it leads to is replaced. A new version keeps the mode of what it
/// replaces, and its owner where the system lets it.
///
/// A process that is killed leaves ".NAME.PID.tmp" behind; nothing reads it.
class AtomicFile {
public:
    enum class Existing { refuse, replace };

    /// @param mode of a file that did not exist; the umask narrows it
    /// @throws ToolFailure when the target is there and is to be refused, or is no regular file, or
    ///         when nothing can be created beside it
    AtomicFile(const std::string& target, Existing existing, mode_t mode = 0666);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    const std::string& Path() const { return path; }
    int Descriptor() const { return descriptor.Get(); }

    /// Brings the bytes to the disk and gives the file its name. @throws ToolFailure
    void Commit();

private:
    void CheckTarget();
    void Create(mode_t mode);
    void Rename();
    [[noreturn]] void FailExists() const;

    const std::string shown;  // the target as the user gave it
    std::string target;
    const Existing existing;
    std::string path;  // empty: nothing to remove
    FileDescriptor descriptor;
};

}  // namespace vantry_tools
