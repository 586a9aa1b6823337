#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "system/FileDescriptor.h"
#include "system/FileLock.h"

namespace vantry_internal {

/// A file that is built next to its target and takes the target's name once it is complete:
///
///     AtomicFile file("a.txt", AtomicFile::Existing::replace);
///     ...                                 // write to file.Descriptor(), or to file.Path()
///     file.Commit();
///
/// Without Commit() the target stays as it was and nothing is left. The new file belongs to the
/// calling process alone (mode 0600) until Commit() grants the rights of the file that it
/// replaces, or the requested ones.
///
/// Where the file system can, the file has no name before Commit(). Elsewhere it is called
/// ".NAME.<16 hexadecimal digits>.tmp" and locked; what a killed process has left is removed when
/// the next AtomicFile for the same target is created.
///
/// Not thread-safe. After fork() the child's copy of the object changes nothing.
class AtomicFile {
public:
    enum class Existing { refuse, replace };
    enum class Sync { no, yes };

    /// A target that is a link stays one: the file that it leads to is replaced.
    /// @param mode of a file that does not replace one; the umask narrows it
    /// @throws SystemError when the target exists and is to be refused (EEXIST) or is no regular
    ///         file, and when nothing can be created next to it
    AtomicFile(const std::string& target, Existing existing, mode_t mode = 0666);

    /// Replaces the locked file; Commit() fails when the lock's path names another file by then.
    /// The lock must outlive the object.
    explicit AtomicFile(const FileLock& lock);

    /// A file in an open folder, by a name without slashes; links are not followed but replaced.
    /// Leftovers of killed processes are not looked for: RemoveLeftovers() does that.
    /// @param folder must stay open
    /// @param shown the path for error texts
    AtomicFile(int folder, const std::string& name, Existing existing, mode_t mode,
               const std::string& shown);

    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// The new file, open for reading and writing.
    int Descriptor() const { return file.Get(); }
    /// A path by which this process can open the new file again.
    std::string Path() const;

    /// Syncs the bytes to the disk, sets the file's rights and its name, and syncs the name to
    /// the disk. May be called once.
    /// @param sync no: without waiting for the disk
    /// @throws SystemError; the target is then as it was, except that after "cannot sync FOLDER" it
    ///         has been replaced and may be the former one again after a power failure
    void Commit(Sync sync = Sync::yes);

    /// Whether a file of this name can be an unfinished one.
    static bool IsTemporaryName(std::string_view name);
    /// Removes the unfinished files for the target `name` that no process holds.
    /// @param folder a descriptor of their folder
    static void RemoveLeftovers(int folder, const std::string& name);

private:
    void Begin();
    bool CreateUnnamed();
    void CreateNamed();
    std::string NewName() const;
    FileDescriptor OpenReplaced() const;
    void SetRights() const;
    void LinkUnnamed();
    void Rename();
    void RemoveName();
    [[noreturn]] void Fail(const char* action, int error) const;

    const std::string shown;  // the target as the caller gave it
    const FileLock* const lock = nullptr;
    const Existing existing;
    const mode_t mode;
    std::string name;  // the target's, in the folder
    std::string folderPath;
    FileDescriptor ownFolder;
    int folder = -1;
    FileDescriptor file;
    std::string temporary;  // empty: the file has no name, or its last
    pid_t process;
};

}  // namespace vantry_internal
