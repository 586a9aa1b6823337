#pragma once

#include "basekit/qtString.h"

namespace vantry_tools {

/// A text with room for a password. Its destructor wipes it from memory.
struct SecretText {
    SecretText();
    ~SecretText();
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    qtString text;
};

/// A password that the user types twice, without seeing it. If standard input is not a terminal,
/// its first line.
class PasswordInput {
public:
    /// @throws ToolFailure when it is empty, has a NUL or more than 1023 bytes, or the two differ;
    ///         Interrupted for Ctrl-C
    PasswordInput();

    const char* Text() const { return password.text.c_str(); }

private:
    SecretText password;
};

}  // namespace vantry_tools
