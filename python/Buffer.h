#pragma once

#include <pybind11/pybind11.h>

#include <atomic>

#include "basekit/qtBuffer.h"
#include "basekit/qtString.h"

/// Memory that packages are opened in: by any number of readers or by one that changes it.
class Buffer {
public:
    explicit Buffer(const qtString& content) {
        bytes.Resize(content.size());
        content.copy(bytes.Data(), content.size());
    }

    /// Readers and writers come with the interpreter's lock held, which keeps them away meanwhile.
    const qtBuffer& Content() const {
        RequireNoWriter();
        return bytes;
    }

    void Begin(char mode) {
        if (mode != 'r' && users > 0) {
            throw pybind11::buffer_error("A package is open in the buffer");
        }
        RequireNoWriter();
        if (mode == 'r') {
            ++users;
        } else {
            users = writer;
        }
    }
    void End() {
        if (users == writer) {
            users = 0;
        } else {
            --users;
        }
    }

    qtBuffer bytes;

private:
    void RequireNoWriter() const {
        if (users == writer) {
            throw pybind11::buffer_error("A package is open for changes in the buffer");
        }
    }

    static constexpr int writer = -1;
    std::atomic<int> users{0};
};
