#pragma once

#include "basekit/qtString.h"

/// A password that the user types, twice and without seeing it, or the first line of a standard
/// input that is no terminal. It is wiped from memory at the end.
class PasswordInput {
public:
    /// @throws ToolFailure when there is none, it has a NUL or more than 1023 bytes, or the second
    ///         is another; Interrupted for Ctrl-C
    PasswordInput();
    ~PasswordInput();
    PasswordInput(const PasswordInput&) = delete;
    PasswordInput& operator=(const PasswordInput&) = delete;

    const char* Text() const { return text.c_str(); }

private:
    qtString text;
};
