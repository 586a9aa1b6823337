#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "system/FileDescriptor.h"

namespace vantry_internal {

/// How long to wait for a lock.
struct LockWait {
    std::chrono::milliseconds limit = std::chrono::seconds(30);  ///< 0: at once or not at all
    /// Receives one line, "waiting for a.hpk, locked by process 123 (hpk)", after one second.
    std::function<void(const std::string& line)> report;
    /// Called before each pause; what it throws ends the wait.
    std::function<void()> poll;
};

/// The exclusive lock of everybody who changes a file: threads and processes alike. It is held
/// until destruction. It keeps out only those who take it too.
///
/// After fork() the lock stays the parent's: the child's copy of the object neither holds nor
/// releases it.
class FileLock {
public:
    enum class Missing { fail, create };

    /// Locks the file that `path` leads to, which is found through links once and is never mistaken
    /// for one that has lost its name meanwhile.
    /// @param missing create: a file that does not exist is created, mode 0600, and the folders
    ///        above it, mode 0700
    /// @throws SystemError when the file cannot be opened for writing or locked; of the number
    ///         ETIMEDOUT when somebody else held the lock for too long
    explicit FileLock(const std::string& path, const LockWait& wait = {},
                      Missing missing = Missing::fail);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// The locked file, where links lead.
    const std::string& Path() const { return path; }
    /// The locked file, open for reading and writing.
    int Descriptor() const { return file.Get(); }
    /// Whether the constructor has created the file.
    bool Created() const { return created; }
    /// Whether this process holds the lock and the path still names the locked file.
    bool IsCurrent() const;

private:
    void Open(Missing missing);
    void Acquire(const LockWait& wait);

    std::string path;
    FileDescriptor file;
    bool created = false;
    pid_t holder = -1;
};

}  // namespace vantry_internal
