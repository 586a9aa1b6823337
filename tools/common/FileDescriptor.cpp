#include "tools/common/FileDescriptor.h"

#include <sys/stat.h>

#include <cerrno>

#include "tools/common/Failures.h"

namespace vantry_tools {

FileDescriptor OpenRegular(const std::string& path, int flags) {
    // Opening a FIFO would wait for its other end.
    FileDescriptor file(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (!file || fstat(file.Get(), &status) != 0) {
        throw SystemFailure("cannot open", path, errno);
    }
    if (S_ISDIR(status.st_mode)) {
        throw SystemFailure("cannot open", path, EISDIR);
    }
    if (!S_ISREG(status.st_mode)) {
        throw ToolFailure("cannot open " + path + ": not a regular file");
    }
    return file;
}

std::size_t ReadSome(int descriptor, char* data, std::size_t count, const std::string& shown) {
    for (;;) {
        const ssize_t taken = read(descriptor, data, count);
        if (taken >= 0) {
            return static_cast<std::size_t>(taken);
        }
        if (errno != EINTR) {
            throw SystemFailure("cannot read", shown, errno);
        }
    }
}

void WriteAll(int descriptor, const char* data, std::size_t count, const std::string& shown) {
    while (count != 0) {
        const ssize_t taken = write(descriptor, data, count);
        if (taken < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw SystemFailure("cannot write", shown, errno);
        }
        data += taken;
        count -= static_cast<std::size_t>(taken);
    }
}

}  // namespace vantry_tools
