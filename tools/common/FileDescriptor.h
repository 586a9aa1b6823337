#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>

namespace vantry_tools {

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

/// Opens an existing regular file. Nothing else is opened, nor waited for.
/// @throws ToolFailure
FileDescriptor OpenRegular(const std::string& path, int flags);

/// Reads up to `count` bytes. @return how many came, 0 at the end
/// @throws ToolFailure that names `shown`
std::size_t ReadSome(int descriptor, char* data, std::size_t count, const std::string& shown);

/// Writes all bytes. @throws ToolFailure that names `shown`
void WriteAll(int descriptor, const char* data, std::size_t count, const std::string& shown);

}  // namespace vantry_tools
