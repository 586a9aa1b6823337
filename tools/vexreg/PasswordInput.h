#pragma once

#include "basekit/qtString.h"

namespace vantry_tools {

/// A text with room for a password, which is wiped from memory when it goes.
struct SecretText {
    SecretText();
    ~SecretText();
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    qtString text;
};

/// A password that the user types, twice and without seeing it, or the first line of a standard
/// input that is no terminal.
class PasswordInput {
public:
    /// @throws ToolFailure when there is none, it has a NUL or more than 1023 bytes, or the second
    ///         is another; Interrupted for Ctrl-C
    PasswordInput();

    const char* Text() const { return password.text.c_str(); }

private:
    SecretText password;
};

}  // namespace vantry_tools
