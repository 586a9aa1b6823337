#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>

#include "system/SystemError.h"

namespace vantry_internal {

/// Owns an open file descriptor; -1 is none.
class FileDescriptor {
public:
    explicit FileDescriptor(int opened = -1) : number(opened) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~FileDescriptor() {
        if (number >= 0) {
            close(number);
        }
    }

    int Get() const { return number; }
    explicit operator bool() const { return number >= 0; }

private:
    int number;
};

/// Opens an existing regular file. Never waits: a FIFO or a device is refused.
/// @param flags as of open(2); close-on-exec is added
/// @throws SystemError "cannot open PATH: ..."
FileDescriptor OpenRegular(const std::string& path, int flags);

/// As OpenRegular(path, flags), for a path relative to an open folder.
/// @param folder a descriptor or AT_FDCWD
/// @param shown the path for the error text
FileDescriptor OpenRegularAt(int folder, const std::string& path, int flags,
                             const std::string& shown);

/// Throws unless `file` is a regular file. @throws SystemError "ACTION SHOWN: ..."
void RequireRegular(int file, std::string_view action, const std::string& shown);

/// Reads up to `count` bytes, continuing after interruptions by signals.
/// @return the number of bytes read, 0 at the end of the file
/// @throws SystemError "cannot read SHOWN: ..."
std::size_t ReadSome(int file, char* data, std::size_t count, const std::string& shown);

/// Writes all bytes. @throws SystemError "cannot write SHOWN: ..."
void WriteAll(int file, const char* data, std::size_t count, const std::string& shown);

}  // namespace vantry_internal
