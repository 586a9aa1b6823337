#pragma once

#include <string>
#include <utility>

#include "basekit/qtString.h"

/// What the registry's database and the key file beside it share: where they lie, what went wrong
/// with them last, the lock that their writers take, and the steps that replace a file so that it
/// is either the old or the new one, whole, whenever the process or the machine stops.
namespace registryFiles {

/// The registry's path without a suffix, absolute; empty when the environment names no place.
std::string Path();

/// What UnixRegistry::LastError() shows to the calling thread.
qtString& LastError();

/// An open file that closes itself.
class File {
public:
    File() = default;
    explicit File(int fileDescriptor) : descriptor(fileDescriptor) {}
    File(File&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    File& operator=(File&& other) noexcept {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~File();

    int Get() const { return descriptor; }
    explicit operator bool() const { return descriptor >= 0; }

private:
    int descriptor = -1;
};

/// The exclusive lock of all writers, threads and processes alike, held until destruction.
class Lock {
public:
    Lock() = default;
    Lock(Lock&&) = default;
    Lock& operator=(Lock&&) = default;
    ~Lock();

    /// Takes the lock on `path` + ".lock"; makes that file and the folders above it when missing.
    /// @return 0 or the system's error number: ETIMEDOUT when another writer did not let go
    int Take(const std::string& path);

    /// What Take() answered, in words.
    static std::string Message(int error);

private:
    File file;
};

/// Creates `path` + ".new", to be written and given to Publish(). Only the lock's holder may.
/// @return no file on failure, with the cause in errno
File CreateNew(const std::string& path, unsigned mode);

/// Puts `path` + ".new" in the place of `path`: both the content and the name are on disk when it
/// returns 0. Otherwise it returns the system's error number.
int Publish(const File& written, const std::string& path);

/// Forgets what CreateNew() made.
void Discard(const std::string& path);

}  // namespace registryFiles
