#include "system/FileDescriptor.h"

#include <sys/stat.h>

#include <cerrno>

namespace vantry_internal {

FileDescriptor OpenRegular(const std::string& path, int flags) {
    return OpenRegularAt(AT_FDCWD, path, flags, path);
}

FileDescriptor OpenRegularAt(int folder, const std::string& path, int flags,
                             const std::string& shown) {
    // Without O_NONBLOCK, opening a FIFO would wait for its other end. Regular files ignore it.
    FileDescriptor file(openat(folder, path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        // Only a special file fails like this.
        const bool special = errno == ENXIO || errno == ENODEV;
        throw special ? SystemError(errno, "cannot open", shown, "not a regular file")
                      : SystemError(errno, "cannot open", shown);
    }
    RequireRegular(file.Get(), "cannot open", shown);
    return file;
}

void RequireRegular(int file, std::string_view action, const std::string& shown) {
    struct stat status;
    if (fstat(file, &status) != 0) {
        throw SystemError(errno, action, shown);
    }
    if (S_ISDIR(status.st_mode)) {
        throw SystemError(EISDIR, action, shown);
    }
    if (!S_ISREG(status.st_mode)) {
        throw SystemError(EINVAL, action, shown, "not a regular file");
    }
}

std::size_t ReadSome(int file, char* data, std::size_t count, const std::string& shown) {
    for (;;) {
        const ssize_t done = read(file, data, count);
        if (done >= 0) {
            return static_cast<std::size_t>(done);
        }
        if (errno != EINTR) {
            throw SystemError(errno, "cannot read", shown);
        }
    }
}

void WriteAll(int file, const char* data, std::size_t count, const std::string& shown) {
    while (count != 0) {
        const ssize_t done = write(file, data, count);
        if (done < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw SystemError(errno, "cannot write", shown);
        }
        data += done;
        count -= static_cast<std::size_t>(done);
    }
}

}  // namespace vantry_internal
