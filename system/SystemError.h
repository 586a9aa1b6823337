#pragma once

#include <string>
#include <string_view>
#include <system_error>

namespace vantry_internal {

/// A failed system call: what could not be done, to which file, and why. what() is the line
/// "cannot open a.hpk: No such file or directory"; code() holds the error number.
class SystemError : public std::system_error {
public:
    /// @param action such as "cannot open"
    SystemError(int error, std::string_view action, std::string_view path);
    /// The same with a reason better than the system's text for `error`.
    SystemError(int error, std::string_view action, std::string_view path,
                const std::string& reason);

    const char* what() const noexcept override { return text.c_str(); }
    /// The part of what() after the action: "a.hpk: No such file or directory".
    const char* PathAndReason() const noexcept { return text.c_str() + pathAt; }
    /// The last part of what(), after the path.
    const char* Reason() const noexcept { return text.c_str() + reasonAt; }
    int Number() const noexcept { return code().value(); }

private:
    std::string text;
    std::size_t pathAt;
    std::size_t reasonAt;
};

}  // namespace vantry_internal
