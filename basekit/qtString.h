#pragma once

#include <string>
#include <utility>

#include "basekit/Export.h"

/// A narrow byte string with value semantics: a standard string that may hold any byte, NUL
/// included, and converts from and to std::string implicitly.
class qtString : public std::string {
public:
    using std::string::string;
    qtString() = default;
    /// Copies or moves a standard string.
    /// @{
    qtString(const std::string& text) : std::string(text) {}
    qtString(std::string&& text) noexcept : std::string(std::move(text)) {}
    /// @}

    /// Removes white space from both ends, in place: space, `\t`, `\n`, `\v`, `\f`, `\r`, whatever
    /// the locale.
    VANTRY_EXPORT void TrimWhiteSpace();
};

/// The wide counterpart of qtString.
class qtWString : public std::wstring {
public:
    using std::wstring::wstring;
    qtWString() = default;
    /// Copies or moves a standard string.
    /// @{
    qtWString(const std::wstring& text) : std::wstring(text) {}
    qtWString(std::wstring&& text) noexcept : std::wstring(std::move(text)) {}
    /// @}
};
