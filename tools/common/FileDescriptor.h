#pragma once

#include <unistd.h>

#include <utility>

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
