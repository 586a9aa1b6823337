#pragma once

#include <pybind11/pybind11.h>

#include <atomic>

#include "basekit/qtBuffer.h"
#include "basekit/qtString.h"

namespace vantry_python {

/// Memory that packages are opened in: by any number of readers, or by one that changes it.
class Buffer {
public:
    explicit Buffer(const qtString& content) {
        bytes.Resize(content.size());
        content.copy(bytes.Data(), content.size());
    }

    /// Call with the interpreter's lock held: Begin() needs it, too.
    /// @throws buffer_error while a package is open for changes
    const qtBuffer& Content() const {
        RequireNoWriter();
        return bytes;
    }

    /// Registers a user. Call with the interpreter's lock held.
    /// @throws buffer_error where another user does not allow the mode
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
    /// The user of Begin() is done.
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

}  // namespace vantry_python
